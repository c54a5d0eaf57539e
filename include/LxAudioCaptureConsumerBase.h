#pragma once
// The thread that takes captured buffers off a capture's shared deque. The
// controller makes the standard one (LxAudioCaptureConsumer), which records
// them into a new clip; a host may hand StartCapture a consumer of its own,
// derived from this class, which it keeps owning. The controller initialises
// the consumer and starts it; the last item it will see is the terminal item
// (no data) that StopCapture queues.
#include "LxAudioCaptureData.h"
#include "LxAudioCoreExport.h"
#include "LxSharedDeque.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/LxWorkerThread.h"

class LxAudioController;

class LXAUDIOCORE_API LxAudioCaptureConsumerBase : public LxWorkerThread {
public:
    LxAudioCaptureConsumerBase();
    ~LxAudioCaptureConsumerBase() override;

    // Binds the consumer to its controller and deque and keeps the callback
    // (the context is not kept). Called once, before the thread starts.
    virtual void Initialize(LxAudioController& controller, LxSharedDeque<LxAudioCaptureData*>& deque,
                            LxCallBackFunction callback, void* context);
    // The clip the consumer recorded, once its thread has ended; -1 before, or when none.
    int GetCapturedClipID() const { return capturedClipID; }
    bool IsInitialized() const { return initialized; }

protected:
    // Waits for the next item and takes it off the front of the deque. The
    // front is read and removed under two separate locks, which is safe because
    // a deque has exactly one consumer.
    void pickNext(LxAudioCaptureData*& item);
    const char* GetThreadName() const override { return "capture consumer"; }

    LxSharedDeque<LxAudioCaptureData*>* deque = nullptr;
    LxAudioController* controller = nullptr;
    int capturedClipID = -1;
    LxCallBackFunction callback = nullptr;
    bool initialized = false;
};
