#pragma once
// The worker thread of a capture device: waits on the device's event and turns
// every recorded buffer into an item on the capture's shared deque, reports the
// input level, and hands the buffer back to the driver.
#include <atomic>
#include "LxPublic/LxWorkerThread.h"

class WLxAudioCaptureDeviceMMIO;

class WLxAudioDeviceReaderThreadMMIO : public LxWorkerThread {
public:
    explicit WLxAudioDeviceReaderThreadMMIO(WLxAudioCaptureDeviceMMIO& device);
    ~WLxAudioDeviceReaderThreadMMIO() override;

    // Cleared only by the device's Stop (which then sets the event).
    std::atomic<bool> running{true};

protected:
    void Run() override;
    const char* GetThreadName() const override { return "capture reader"; }

private:
    void ServiceBuffer(int index);

    WLxAudioCaptureDeviceMMIO& device;
};
