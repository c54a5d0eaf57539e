#include "LxAudioEffectClip.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxPublic/LxAssert.h"


LxAudioEffectClip::LxAudioEffectClip(const LxAudioClipBase& source, const LxAudioEffectEnum& kind,
                                     const int& startMS, const int& durationMS)
    : LxAudioClip(source.GetAudioFile(), -1, LX_AUDIO_CLIP_SOURCE_OTHER),
      effect(kind),
      effectStartMS(startMS),
      effectDurationMS(durationMS) {
    AppendPageRanges(source.GetPageRanges());
}

LxAudioEffectClip::LxAudioEffectClip(const LxAudioEffectClip& other)
    : LxAudioClip(other),
      effect(other.effect),
      effectStartMS(other.effectStartMS),
      effectDurationMS(other.effectDurationMS) {}

LxAudioEffectClip& LxAudioEffectClip::operator=(const LxAudioEffectClip& other) {
    if (this != &other) {
        LxAudioClip::operator=(other);
        effect = other.effect;
        effectStartMS = other.effectStartMS;
        effectDurationMS = other.effectDurationMS;
    }
    return *this;
}

LxAudioEffectClip::~LxAudioEffectClip() = default;

void LxAudioEffectClip::GetNextPCMData(int channels, unsigned char* out, int outCapacity, int& bytesWritten,
                                       LxPCMData* info, bool mix) {
    if (effect == LxAudioEffectNone) {
        LxAudioClip::GetNextPCMData(channels, out, outCapacity, bytesWritten, info, mix);
        return;
    }
    if (effect != LxAudioEffectFadeIn && effect != LxAudioEffectFadeOut) {
        LxReportAt("", LxReportSites::kEffectClipUnknownEffect);
        return;
    }
    if (out == nullptr || outCapacity <= 0) {
        LxAudioClip::GetNextPCMData(channels, out, outCapacity, bytesWritten, info, mix);
        return;
    }
    const int startPosition = GetPosition();
    // The plain read goes to a buffer of its own, unmixed, so that mixing
    // happens only once, after the fade.
    if (fadeBuffer.size() < static_cast<size_t>(outCapacity)) fadeBuffer.resize(static_cast<size_t>(outCapacity));
    LxAudioClip::GetNextPCMData(channels, fadeBuffer.data(), outCapacity, bytesWritten, info, false);
    if (channels < 1) return;

    const int startFrame = static_cast<int>(static_cast<float>(effectStartMS) * 0.001f * kLxFrameRateF + 0.5f) + 1;
    const int durationFrames = effectDurationMS != -1
                                   ? static_cast<int>(static_cast<float>(effectDurationMS) * 0.001f * kLxFrameRateF + 0.5f)
                                   : WorthInFrames();
    const int64_t framesRead = static_cast<int64_t>(GetPosition()) - startPosition;
    const int64_t samples = std::min<int64_t>(framesRead * channels, bytesWritten / 2);
    if (samples <= 0) return;

    const auto* in = reinterpret_cast<const int16_t*>(fadeBuffer.data());
    auto* dst = reinterpret_cast<int16_t*>(out);
    for (int64_t i = 0; i < samples; i += channels) {
        const int64_t frame = startPosition + i / channels;
        float level;
        if (durationFrames > 0) {
            const int64_t t = frame < startFrame ? 0 : std::min<int64_t>(frame - startFrame, durationFrames);
            level = static_cast<float>(t) / static_cast<float>(durationFrames);
        } else {
            // A fade of no length is a step at its start.
            level = frame < startFrame ? 0.0f : 1.0f;
        }
        if (effect == LxAudioEffectFadeOut) level = 1.0f - level;
        for (int c = 0; c < channels && i + c < samples; ++c) {
            float x = static_cast<float>(in[i + c]);
            if (level != 1.0f) x *= level;
            x = std::clamp(x, -32768.0f, 32767.0f);
            const auto v = static_cast<int16_t>(x);
            if (mix) {
                dst[i + c] = static_cast<int16_t>(static_cast<uint16_t>(dst[i + c]) + static_cast<uint16_t>(v));
            } else {
                dst[i + c] = v;
            }
        }
    }
}
