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

// Whether the effect's arithmetic can run eight lanes at once with the same
// single-precision operations as LxAudioVolumeEffect::Transform and the same
// results: finite parameters and a ratio other than 0, so that no lane can
// meet a NaN (which Transform maps to 0 and the vector clamp would not).
bool IsVectorEffect(const LxAudioVolumeEffect& effect) {
    return std::isfinite(effect.gain) && std::isfinite(effect.threshold) && std::isfinite(effect.ratio) &&
           effect.ratio != 0.0f;
}

// Samples [0, count) of in through the effect, as LxAudioVolumeEffect::Transform
// takes them (gain, then the compressor beyond the threshold on either side,
// saturation, truncation toward zero), written to out, or added to out's
// samples (16-bit wrap-around) when mix is set.
void ApplyEffect(const unsigned char* in, int count, const LxAudioVolumeEffect& effect, bool mix,
                 unsigned char* out) {
    int i = 0;
#if defined(LX_CONVERTER_SSE2)
    const __m128 gain = _mm_set1_ps(effect.gain), threshold = _mm_set1_ps(effect.threshold);
    const __m128 ratio = _mm_set1_ps(effect.ratio);
    const __m128 highest = _mm_set1_ps(32767.0f), lowest = _mm_set1_ps(-32768.0f);
    const bool compress = effect.threshold != 0.0f;
    auto lanes = [&](__m128 x) {
        if (compress) {
            // Above the threshold, else below its negative, else as it is.
            const __m128 above = _mm_cmpgt_ps(x, threshold);
            const __m128 below = _mm_andnot_ps(above, _mm_cmpgt_ps(_mm_sub_ps(_mm_setzero_ps(), x), threshold));
            const __m128 up = _mm_add_ps(_mm_div_ps(_mm_sub_ps(x, threshold), ratio), threshold);
            const __m128 down = _mm_sub_ps(_mm_div_ps(_mm_add_ps(threshold, x), ratio), threshold);
            x = _mm_or_ps(_mm_and_ps(above, up), _mm_andnot_ps(above, x));
            x = _mm_or_ps(_mm_and_ps(below, down), _mm_andnot_ps(below, x));
        }
        return _mm_cvttps_epi32(_mm_max_ps(_mm_min_ps(x, highest), lowest));
    };
    for (; i + 8 <= count; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i));
        // Sign-extended to 32 bits, as floats, scaled.
        const __m128i low = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
        const __m128i high = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
        __m128i result = _mm_packs_epi32(lanes(_mm_mul_ps(_mm_cvtepi32_ps(low), gain)),
                                         lanes(_mm_mul_ps(_mm_cvtepi32_ps(high), gain)));
        if (mix) result = _mm_add_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(out + 2 * i)), result);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), result);
    }
#endif
    for (; i < count; ++i) {
        int16_t sample = effect.LxAudioVolumeEffect::Transform(SampleAt(in, i));
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
        if (!identity && IsVectorEffect(*effect)) {
            // Converted a block at a time (or taken as stored), then through the effect in one pass.
            if (storedChannels == wantedChannels) {
                ApplyEffect(stored + from, samples, *effect, mix, out);
                return;
            }
            constexpr int kBlock = 1024;
            unsigned char block[2 * kBlock];
            for (int done = 0; done < samples; done += kBlock) {
                const int n = samples - done < kBlock ? samples - done : kBlock;
                for (int i = 0; i < n; ++i) {
                    PutSample(block, i, ConvertedSample(stored, storedChannels, wantedChannels, first + done + i));
                }
                ApplyEffect(block, n, *effect, mix, out + 2 * done);
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
