#pragma once
// The capture device over a wave driver: mono, 16-bit, 44100 frames per second,
// four buffers of 100 ms (8820 bytes) that the driver fills in turn, an
// auto-reset event the driver sets when a buffer is done, and a reader thread
// that services the done buffers.
#include <atomic>
#include <deque>
#include <memory>
#include "LxAudioCaptureDevice.h"
#include "WLxAudioDeviceReaderThreadMMIO.h"
#include "LxPublic/wave/LxWaveDriver.h"

class WLxAudioCaptureDeviceMMIO : public LxAudioCaptureDevice {
public:
    static constexpr int kBufferCount = 4;
    static constexpr int kBufferBytes = 8820;

    explicit WLxAudioCaptureDeviceMMIO(LxSharedDeque<LxAudioCaptureData*>& deque);
    ~WLxAudioCaptureDeviceMMIO() override;

    bool Start(const int& deviceID, float volume, bool capturing, LxCallBackFunction callback,
               void* context) override;
    bool Stop() override;
    // A negative volume counts as 4.0; the mixer gets the volume clamped to 1.0.
    bool SetVolume(float volume) override;
    float GetVolume() override { return requestedVolume.load(); }

    bool IsOpen() const { return handle != nullptr; }

private:
    friend class WLxAudioDeviceReaderThreadMMIO;

    // Closes the wave-in handle, retrying while buffers are still queued.
    void CloseWaveIn();
    void FreeBuffers();

    std::unique_ptr<LxWaveDevice> handle;
    LxWaveDriver* driver = nullptr;
    unsigned deviceIndex = 0;
    unsigned lineIndex = 0;
    LxWaveHeader headers[kBufferCount];
    // Indices of the queued headers, oldest first: the order the driver fills them.
    std::deque<int> queuedOrder;
    std::atomic<float> requestedVolume{1.0f};
    LxWaveEvent event;
    WLxAudioDeviceReaderThreadMMIO readerThread;
};
