#pragma once
// One weighted stretch of a clip that takes part in a merged stream: from
// start to end (milliseconds from the clip's start; end -1 is the clip's end)
// the clip's level is multiplied by weight.
#include "LxAudioCoreExport.h"

class LXAUDIOCORE_API LxAudioClipSectionForMerger {
public:
    explicit LxAudioClipSectionForMerger(float weight) : start(0), end(-1), weightFactor(weight) {}
    LxAudioClipSectionForMerger(const int& startMS, const int& endMS, float weight)
        : start(startMS), end(endMS), weightFactor(weight) {}

    int StartTimeMS() const { return start; }
    int EndTimeMS() const { return end; }
    float Weight() const { return weightFactor; }

private:
    int start;
    int end;
    float weightFactor;
};
