#include "LxAudioVolumeEffect.h"

#include "LxPublic/ILxReadWriteStream.h"

LxAudioVolumeEffect::LxAudioVolumeEffect() : gain(1.0f), threshold(0.0f), ratio(1.0f) { type = LxAudioEffectVolume; }

LxAudioVolumeEffect::LxAudioVolumeEffect(float gainValue, float thresholdValue, float ratioValue)
    : gain(gainValue), threshold(thresholdValue), ratio(ratioValue) {
    type = LxAudioEffectVolume;
}


short LxAudioVolumeEffect::Transform(short sample) const {
    float x = static_cast<float>(sample);
    if (gain != 1.0f) x *= gain;
    if (threshold != 0.0f) {
        // The part beyond the threshold is divided by the ratio, on both sides;
        // a sample exactly at the threshold is left alone.
        if (x > threshold) {
            x = (x - threshold) / ratio + threshold;
        } else if (-x > threshold) {
            x = (threshold + x) / ratio - threshold;
        }
    }
    if (x != x) return 0;  // a NaN gain or ratio from a damaged record
    if (x > 32767.0f) return 32767;
    if (x < -32768.0f) return -32768;
    return static_cast<short>(x);
}

void LxAudioVolumeEffect::XferData(ILxReadWriteStream& stream) {
    double values[3] = {gain, threshold, ratio};
    if (stream.IsWriting()) {
        for (double& v : values) stream.Xfer(v);
        return;
    }
    for (double& v : values) stream.Xfer(v);
    gain = static_cast<float>(values[0]);
    threshold = static_cast<float>(values[1]);
    ratio = static_cast<float>(values[2]);
}
