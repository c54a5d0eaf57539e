#pragma once
// The controller's message thread that serialises stop-playback requests
// arriving from device threads: message 15 with a clip ID stops that playback,
// message 16 ends a capture that must end itself.
#include "LxAudioCoreExport.h"
#include "LxPublic/LxThread.h"

class LxAudioController;

class LXAUDIOCORE_API LxAudioPlaybackStopHandler : public LxThread {
public:
    static constexpr int kMessageStopPlayBack = 15;
    // A capture journal asks for its capture to end (the first parameter names
    // the capture); the controller ends it on this thread.
    static constexpr int kMessageEndCapture = 16;

    LxAudioPlaybackStopHandler() : LxThread(kLxThreadPriorityNormal) {}
    void SetController(LxAudioController* owner) { controller = owner; }

protected:
    void HandleMessage(const LxThreadMessage& message) override;

private:
    LxAudioController* controller = nullptr;
};
