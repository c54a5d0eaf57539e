#include "LxAudioCaptureConsumerBase.h"

LxAudioCaptureConsumerBase::LxAudioCaptureConsumerBase() : LxWorkerThread(kLxThreadPriorityNormal) {}

LxAudioCaptureConsumerBase::~LxAudioCaptureConsumerBase() = default;

void LxAudioCaptureConsumerBase::Initialize(LxAudioController& owner, LxSharedDeque<LxAudioCaptureData*>& shared,
                                            LxCallBackFunction function, void*) {
    controller = &owner;
    deque = &shared;
    callback = function;
    initialized = true;
}

void LxAudioCaptureConsumerBase::pickNext(LxAudioCaptureData*& item) {
    {
        LxLock lock(deque->mutex);
        while (deque->queue.empty()) deque->condition.Wait(lock);
        item = deque->queue.front();
    }
    LxLock lock(deque->mutex);
    if (!deque->queue.empty()) deque->queue.pop_front();
}
