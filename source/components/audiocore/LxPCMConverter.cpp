#include "LxPCMConverter.h"

#include <cstdint>
#include <cstring>
#include "LxAudioVolumeEffect.h"

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
