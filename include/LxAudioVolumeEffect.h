#pragma once
// Gain with an optional symmetric compressor, applied to 16-bit samples when
// audio is read. Every page range of a clip carries one, so level changes never
// alter the stored audio.
#include "LxAudioEffect.h"

class LXAUDIOCORE_API LxAudioVolumeEffect : public LxAudioEffect {
public:
    LxAudioVolumeEffect();
    LxAudioVolumeEffect(float gain, float threshold, float ratio);
    // Copied member by member, inline: clips copy whole vectors of ranges that carry one each.
    LxAudioVolumeEffect(const LxAudioVolumeEffect& other) = default;
    LxAudioVolumeEffect& operator=(const LxAudioVolumeEffect& other) = default;

    // Parameters as three doubles: gain, threshold, ratio.
    void XferData(ILxReadWriteStream& stream) override;
    // Scales by gain, compresses the part beyond threshold by ratio (threshold 0
    // turns compression off), saturates to the 16-bit range and truncates.
    short Transform(short sample) const override;

    // True when Transform leaves every sample unchanged and readers may copy.
    bool IsIdentity() const { return gain == 1.0f && ratio == 1.0f; }

    float gain;
    float threshold;
    float ratio;
};
