#include "LxCliDeviceSession.h"

#include <chrono>

LxCliDeviceSession::~LxCliDeviceSession() {
    Release();
    if (capturing_) controller_.CancelCapture();
}

bool LxCliDeviceSession::StartCapture(int deviceID, float volume, int targetBuffers) {
    targetBuffers_ = targetBuffers;
    capturing_ = true;  // a capture that failed to start is still ended by the host
    return controller_.StartCapture(deviceID, volume, true, &LxCliDeviceSession::OnDevice, this);
}

int LxCliDeviceSession::StopCapture() {
    Release();
    capturing_ = false;
    return controller_.StopCapture();
}

void LxCliDeviceSession::StartPlayBack(int clipID, int startFrame, int endFrame) {
    controller_.StartPlayBackOnDefaultDevice(clipID, startFrame, endFrame, &LxCliDeviceSession::OnDevice, this);
}

void LxCliDeviceSession::Release() {
    std::lock_guard<std::mutex> guard(mutex_);
    released_ = true;
    release_.notify_all();
}

void LxCliDeviceSession::OnDevice(LxCallBack& callBack, void* context) {
    auto* self = static_cast<LxCliDeviceSession*>(context);
    switch (callBack.GetKind()) {
        case kLxCallBackInputLevel:
            self->level_.store(callBack.GetValue());
            if (self->buffers_.fetch_add(1) + 1 >= self->targetBuffers_ && self->targetBuffers_ > 0) {
                std::unique_lock<std::mutex> lock(self->mutex_);
                self->full_ = true;
                self->release_.wait_for(lock, std::chrono::seconds(2), [self] { return self->released_; });
            }
            break;
        case kLxCallBackCaptureEnded:
            self->endedClipID_.store(static_cast<int>(callBack.GetValue()));
            self->endedItself_.store(true);
            break;
        case kLxCallBackPlaybackStarted: self->started_.store(true); break;
        case kLxCallBackPlaybackPosition:
            self->position_.store(static_cast<long long>(callBack.GetValue()));
            break;
        case kLxCallBackPlaybackStopped: self->stopped_.store(true); break;
        default: break;
    }
}
