#pragma once
// The standard capture consumer: appends every captured buffer to one new clip
// (source: recording) and, at the terminal item, finishes the clip, stores it
// and publishes its clip ID.
#include "LxAudioCaptureConsumerBase.h"

class LXAUDIOCORE_API LxAudioCaptureConsumer : public LxAudioCaptureConsumerBase {
public:
    LxAudioCaptureConsumer() = default;
    ~LxAudioCaptureConsumer() override;

protected:
    void Run() override;
};
