#pragma once
// What the engine reports to a host callback: a kind and one float value.
#include "LxPublicExport.h"

enum LxCallBackEnum : int {
    kLxCallBackNone = 0,
    kLxCallBackPlaybackStarted = 32,
    kLxCallBackPlaybackPosition = 33,
    kLxCallBackPlaybackStopped = 36,
    kLxCallBackInputLevel = 38,
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
