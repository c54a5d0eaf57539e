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
    explicit LxCallBack(LxCallBackEnum callBackKind, float callBackValue = 0.0f)
        : kind(callBackKind), value(callBackValue) {}
    LxCallBackEnum GetKind() const { return kind; }
    float GetValue() const { return value; }
    void SetValue(float newValue) { value = newValue; }

private:
    LxCallBackEnum kind;
    float value;
};

// A host callback: a plain function with a context pointer that the host chose.
using LxCallBackFunction = void (*)(LxCallBack& callBack, void* context);
