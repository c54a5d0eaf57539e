#include "LxCliDeviceSession.h"

#include <chrono>

LxCliDeviceSession::~LxCliDeviceSession() {
    Release();
    if (capturing) controller.CancelCapture();
}

bool LxCliDeviceSession::StartCapture(int deviceID, float volume, int bufferCount) {
    targetBuffers = bufferCount;
    capturing = true;  // a capture that failed to start is still ended by the host
    return controller.StartCapture(deviceID, volume, true, &LxCliDeviceSession::OnDevice, this);
}

int LxCliDeviceSession::StopCapture() {
    Release();
    capturing = false;
    return controller.StopCapture();
}

void LxCliDeviceSession::StartPlayBack(int clipID, int startFrame, int endFrame) {
    controller.StartPlayBackOnDefaultDevice(clipID, startFrame, endFrame, &LxCliDeviceSession::OnDevice, this);
}

void LxCliDeviceSession::Release() {
    std::lock_guard<std::mutex> guard(mutex);
    released = true;
    release.notify_all();
}

void LxCliDeviceSession::OnDevice(LxCallBack& callBack, void* context) {
    auto* self = static_cast<LxCliDeviceSession*>(context);
    switch (callBack.GetKind()) {
        case kLxCallBackInputLevel:
            self->level.store(callBack.GetValue());
            if (self->buffers.fetch_add(1) + 1 >= self->targetBuffers && self->targetBuffers > 0) {
                std::unique_lock<std::mutex> lock(self->mutex);
                self->full = true;
                self->release.wait_for(lock, std::chrono::seconds(2), [self] { return self->released; });
            }
            break;
        case kLxCallBackCaptureEnded:
            self->endedClipID.store(static_cast<int>(callBack.GetValue()));
            self->endedItself.store(true);
            break;
        case kLxCallBackPlaybackStarted: self->started.store(true); break;
        case kLxCallBackPlaybackPosition:
            self->position.store(static_cast<long long>(callBack.GetValue()));
            break;
        case kLxCallBackPlaybackStopped: self->stopped.store(true); break;
        default: break;
    }
}
