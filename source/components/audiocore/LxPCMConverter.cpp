#include "LxPCMConverter.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include "LxAudioVolumeEffect.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define LX_CONVERTER_SSE2 1
#endif

namespace {

int16_t SampleAt(const unsigned char* pcm, int index) {
    int16_t sample;
    std::memcpy(&sample, pcm + 2 * index, 2);
    return sample;
}

void PutSample(unsigned char* pcm, int index, int16_t sample) { std::memcpy(pcm + 2 * index, &sample, 2); }

// Sample `index` of the converted page.
inline int16_t ConvertedSample(const unsigned char* stored, int storedChannels, int wantedChannels, int index) {
    if (storedChannels == 2 && wantedChannels == 1) {
        const int32_t sum = int32_t{SampleAt(stored, 2 * index)} + int32_t{SampleAt(stored, 2 * index + 1)};
        return static_cast<int16_t>(sum / 2);
    }
    if (storedChannels == 1 && wantedChannels == 2) return SampleAt(stored, index / 2);
    return SampleAt(stored, index);
}

inline int16_t MixedSample(unsigned char* out, int index, int16_t sample) {
    return static_cast<int16_t>(static_cast<uint16_t>(SampleAt(out, index)) + static_cast<uint16_t>(sample));
}

// Whether the effect is a plain finite gain: no compressor, so that each sample
// is scaled, saturated and truncated, which eight lanes can do at once with the
// same single-precision product and the same results.
bool IsPlainGain(const LxAudioVolumeEffect& effect) {
    return effect.threshold == 0.0f && std::isfinite(effect.gain);
}

// Samples [0, count) of in, scaled by gain as LxAudioVolumeEffect::Transform
// scales them, written to out, or added to out's samples (16-bit wrap-around)
// when mix is set.
void ScaleSamples(const unsigned char* in, int count, float gain, bool mix, unsigned char* out) {
    int i = 0;
#if defined(LX_CONVERTER_SSE2)
    const __m128 factor = _mm_set1_ps(gain);
    const __m128 highest = _mm_set1_ps(32767.0f), lowest = _mm_set1_ps(-32768.0f);
    for (; i + 8 <= count; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i));
        // Sign-extended to 32 bits, as floats, scaled and held to the 16-bit range.
        const __m128i low = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
        const __m128i high = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
        __m128 a = _mm_mul_ps(_mm_cvtepi32_ps(low), factor);
        __m128 b = _mm_mul_ps(_mm_cvtepi32_ps(high), factor);
        a = _mm_max_ps(_mm_min_ps(a, highest), lowest);
        b = _mm_max_ps(_mm_min_ps(b, highest), lowest);
        __m128i scaled = _mm_packs_epi32(_mm_cvttps_epi32(a), _mm_cvttps_epi32(b));
        if (mix) scaled = _mm_add_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(out + 2 * i)), scaled);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), scaled);
    }
#endif
    for (; i < count; ++i) {
        float x = static_cast<float>(SampleAt(in, i)) * gain;
        x = x > 32767.0f ? 32767.0f : (x < -32768.0f ? -32768.0f : x);
        auto sample = static_cast<int16_t>(x);
        if (mix) sample = MixedSample(out, i, sample);
        PutSample(out, i, sample);
    }
}

}  // namespace

int LxPCMConverter::ConvertedOffset(int storedOffset, int storedChannels, int wantedChannels) {
    if (storedChannels == 2 && wantedChannels == 1) return storedOffset / 2;
    if (storedChannels == 1 && wantedChannels == 2) return storedOffset * 2;
    return storedOffset;
}

int LxPCMConverter::ConvertedBytes(int storedBytes, int storedChannels, int wantedChannels) {
    if (storedChannels == 2 && wantedChannels == 1) return (storedBytes / 4) * 2;
    if (storedChannels == 1 && wantedChannels == 2) return (storedBytes / 2) * 4;
    return storedBytes;
}

int LxPCMConverter::ConvertInPlace(unsigned char* pcm, int bytes, int storedChannels, int wantedChannels) {
    const int converted = ConvertedBytes(bytes, storedChannels, wantedChannels);
    if (storedChannels == 2 && wantedChannels == 1) {
        // Forwards: sample i is written after samples 2i and 2i + 1 were read.
        for (int i = 0; i < converted / 2; ++i) PutSample(pcm, i, ConvertedSample(pcm, 2, 1, i));
    } else if (storedChannels == 1 && wantedChannels == 2) {
        // From the last sample down, so that no sample is overwritten before it is read.
        for (int i = converted / 2 - 1; i >= 0; --i) PutSample(pcm, i, SampleAt(pcm, i / 2));
    }
    return converted;
}

void LxPCMConverter::HandOut(const unsigned char* stored, int storedChannels, int wantedChannels, int from,
                             int count, const LxAudioVolumeEffect* effect, bool mix, unsigned char* out) {
    if (count <= 0) return;
    const bool identity = effect == nullptr || effect->IsIdentity();
    if (from % 2 == 0 && count % 2 == 0) {
        const int first = from / 2, samples = count / 2;
        if (identity && !mix && storedChannels == wantedChannels) {
            std::memcpy(out, stored + from, static_cast<size_t>(count));
            return;
        }
        if (!identity && IsPlainGain(*effect)) {
            // Converted a block at a time (or taken as stored), then scaled in one pass.
            if (storedChannels == wantedChannels) {
                ScaleSamples(stored + from, samples, effect->gain, mix, out);
                return;
            }
            constexpr int kBlock = 1024;
            unsigned char block[2 * kBlock];
            for (int done = 0; done < samples; done += kBlock) {
                const int n = samples - done < kBlock ? samples - done : kBlock;
                for (int i = 0; i < n; ++i) {
                    PutSample(block, i, ConvertedSample(stored, storedChannels, wantedChannels, first + done + i));
                }
                ScaleSamples(block, n, effect->gain, mix, out + 2 * done);
            }
            return;
        }
        for (int i = 0; i < samples; ++i) {
            int16_t sample = ConvertedSample(stored, storedChannels, wantedChannels, first + i);
            if (!identity) sample = effect->LxAudioVolumeEffect::Transform(sample);
            if (mix) sample = MixedSample(out, i, sample);
            PutSample(out, i, sample);
        }
        return;
    }
    // A window across sample boundaries: the samples it touches are converted
    // into the scratch buffer, and bytes are taken from there as they fall.
    const int first = from / 2, last = (from + count + 1) / 2;
    scratch.resize(static_cast<size_t>(2 * (last - first)));
    for (int i = first; i < last; ++i) {
        PutSample(scratch.data(), i - first, ConvertedSample(stored, storedChannels, wantedChannels, i));
    }
    const unsigned char* in = scratch.data() + from % 2;
    if (identity && !mix) {
        std::memcpy(out, in, static_cast<size_t>(count));
        return;
    }
    for (int i = 0; i < count / 2; ++i) {
        int16_t sample = SampleAt(in, i);
        if (!identity) sample = effect->LxAudioVolumeEffect::Transform(sample);
        if (mix) sample = MixedSample(out, i, sample);
        PutSample(out, i, sample);
    }
}
