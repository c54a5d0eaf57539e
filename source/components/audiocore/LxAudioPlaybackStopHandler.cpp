#include "LxAudioPlaybackStopHandler.h"

#include "LxAudioController.h"

void LxAudioPlaybackStopHandler::HandleMessage(const LxThreadMessage& message) {
    if (message.code == kMessageStopPlayBack && controller != nullptr) {
        controller->StopPlayBack(static_cast<int>(message.param1));
        return;
    }
    if (message.code == kMessageEndCapture && controller != nullptr) {
        controller->HandleCaptureEndRequest(static_cast<int>(message.param1));
        return;
    }
    LxThread::HandleMessage(message);
}
