#pragma once
// What the engine reports to a host callback: a kind and one float value.
#include "LxPublicExport.h"

enum LxCallBackEnum : int {
    kLxCallBackNone = 0,
    kLxCallBackPlaybackStarted = 32,
    kLxCallBackPlaybackPosition = 33,
    kLxCallBackPlaybackStopped = 36,
    kLxCallBackInputLevel = 38,
    // The capture ended itself (the disk was about to fill up, or the capture
    // journal could no longer be written) as StopCapture would have ended it:
    // everything captured so far is stored. Value: the captured clip's ID, or
    // -1 when nothing was captured. Raised once, on the controller's own thread.
    kLxCallBackCaptureEnded = 39,
};

class LXPUBLIC_API LxCallBack {
public:
    explicit LxCallBack(LxCallBackEnum kind, float value = 0.0f) : kind_(kind), value_(value) {}
    LxCallBackEnum GetKind() const { return kind_; }
    float GetValue() const { return value_; }
    void SetValue(float value) { value_ = value; }

private:
    LxCallBackEnum kind_;
    float value_;
};

// A host callback: a plain function with a context pointer that the host chose.
using LxCallBackFunction = void (*)(LxCallBack& callBack, void* context);
