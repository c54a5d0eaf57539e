#pragma once
// The playback device over a wave driver: the default output, stereo, 16-bit,
// 44100 frames per second, four buffers of 100 ms (17640 bytes), an auto-reset
// event the driver sets when a buffer has been played, and a writer thread that
// refills the played buffers.
#include <memory>
#include "LxAudioPlayBackDevice.h"
#include "WLxAudioDeviceWriterThreadMMIO.h"
#include "LxPublic/wave/LxWaveDriver.h"

class WLxAudioPlayBackDeviceMMIO : public LxAudioPlayBackDevice {
public:
    static constexpr int kBufferCount = 4;
    static constexpr int kBufferBytes = 17640;

    WLxAudioPlayBackDeviceMMIO(LxStopPlayBackFunction stopFunction, void* stopContext);
    ~WLxAudioPlayBackDeviceMMIO() override;

    // Opens the output and queues up to four buffers. True also when the source
    // was empty (the stop function has then been called and nothing plays).
    bool Start(LxCallBackFunction callback, void* context) override;
    bool Stop() override;

    bool IsOpen() const { return handle != nullptr; }

private:
    friend class WLxAudioDeviceWriterThreadMMIO;

    // Fills the header's buffer from the source; the bytes filled.
    int FillBuffer(LxWaveHeader& header);
    // Kind 33 with the play position (frames written, or the driver's position
    // on the Windows versions whose own count follows the sound card).
    void ReportPosition(bool final);
    void FreeBuffers();

    std::unique_ptr<LxWaveDevice> handle;
    LxWaveHeader headers[kBufferCount];
    int bufferSize = 0;
    LxWaveEvent event;
    WLxAudioDeviceWriterThreadMMIO writerThread;
};
