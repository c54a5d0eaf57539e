#pragma once
// The worker thread of a playback device: waits on the device's event, refills
// every played buffer from the source and queues it again. At the end of the
// audio it queues filler buffers so that the last real audio drains, and after
// the fifth empty read it calls the device's stop function and ends.
#include <atomic>
#include "LxPublic/LxWorkerThread.h"

class WLxAudioPlayBackDeviceMMIO;

class WLxAudioDeviceWriterThreadMMIO : public LxWorkerThread {
public:
    explicit WLxAudioDeviceWriterThreadMMIO(WLxAudioPlayBackDeviceMMIO& device);
    ~WLxAudioDeviceWriterThreadMMIO() override;

    // Cleared by the device's Stop (which then sets the event), or by the
    // thread itself at the end of the audio.
    std::atomic<bool> running{true};

protected:
    void Run() override;
    const char* GetThreadName() const override { return "playback writer"; }

private:
    WLxAudioPlayBackDeviceMMIO& device;
};
