#pragma once
// An audio clip that fades in or out while it is played, over a stretch given
// in milliseconds, without changing the stored audio. The level steps once per
// frame, linearly from 0 to 1 (fade in) or 1 to 0 (fade out).
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioEffectEnum.h"

class LXAUDIOCORE_API LxAudioEffectClip : public LxAudioClip {
public:
    // A new clip (no ID, nothing written to the store) with source's ranges.
    // effect is LxAudioEffectFadeIn, LxAudioEffectFadeOut or LxAudioEffectNone;
    // a duration of -1 fades over the whole clip.
    LxAudioEffectClip(const LxAudioClipBase& source, const LxAudioEffectEnum& effect, const int& effectStartMS,
                      const int& effectDurationMS);
    LxAudioEffectClip(const LxAudioEffectClip& other);
    LxAudioEffectClip& operator=(const LxAudioEffectClip& other);
    ~LxAudioEffectClip() override;

    void SetEffectStartTimeMS(const int& startMS) { effectStartMS = startMS; }
    void SetEffectDurationMS(const int& durationMS) { effectDurationMS = durationMS; }
    LxAudioEffectEnum GetEffect() const { return effect; }
    int GetEffectStartTimeMS() const { return effectStartMS; }
    int GetEffectDurationMS() const { return effectDurationMS; }

    // The clip's PCM with the fade applied. With mix set the faded samples are
    // added to out in 16-bit arithmetic that wraps around.
    void GetNextPCMData(int channels, unsigned char* out, int outCapacity, int& bytesWritten, LxPCMData* info,
                        bool mix) override;

private:
    LxAudioEffectEnum effect;
    int effectStartMS;
    int effectDurationMS;
    // The plain read lands here before the fade; grown as needed, kept between reads.
    std::vector<unsigned char> fadeBuffer;
};
