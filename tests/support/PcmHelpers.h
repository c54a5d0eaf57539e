#pragma once
// Test audio: 16-bit PCM buffers with known samples, and reading a whole clip back.
#include <cstdint>
#include <cstring>
#include <vector>
#include "ILxAudioPlaybackClip.h"

// frames x channels samples; sample i is value(i).
template <typename F>
std::vector<int16_t> MakePcm(int frames, int channels, F value) {
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(value(static_cast<int>(i)));
    return pcm;
}

// A ramp that never repeats within a page and is never all zero.
inline std::vector<int16_t> MakeRamp(int frames, int channels, int seed = 1) {
    return MakePcm(frames, channels, [seed](int i) { return ((i * 7 + seed * 13) % 20001) - 10000 + (i % 2); });
}

// Mono samples as stereo: each one on both sides.
inline std::vector<int16_t> BothSides(const std::vector<int16_t>& mono) {
    std::vector<int16_t> stereo;
    for (int16_t s : mono) stereo.insert(stereo.end(), {s, s});
    return stereo;
}

// Rising zero crossings of one channel per second, leaving out 0.1 s at each end.
inline double Frequency(const std::vector<int16_t>& pcm, int channels, int channel) {
    const size_t frames = pcm.size() / static_cast<size_t>(channels), from = 4410, to = frames - 4410;
    int crossings = 0;
    for (size_t i = from; i + 1 < to; ++i)
        crossings += pcm[i * channels + channel] < 0 && pcm[(i + 1) * channels + channel] >= 0;
    return crossings * 44100.0 / static_cast<double>(to - from);
}

// Pulls everything a playback clip delivers, as channels channels. Empty pages
// may give 0 bytes without the clip being finished; two empty reads in a row
// mean the end.
inline std::vector<int16_t> ReadAll(ILxAudioPlaybackClip& clip, int channels, int chunkBytes = 17640) {
    std::vector<int16_t> out;
    std::vector<unsigned char> buffer(static_cast<size_t>(chunkBytes));
    for (int guard = 0, empty = 0; guard < 1000000 && empty < 2; ++guard) {
        int got = 0;
        clip.GetNextPCMData(channels, buffer.data(), chunkBytes, got, nullptr, false);
        empty = got == 0 ? empty + 1 : 0;
        if (got <= 0) continue;
        const size_t old = out.size();
        out.resize(old + static_cast<size_t>(got) / 2);
        std::memcpy(out.data() + old, buffer.data(), static_cast<size_t>(got / 2) * 2);
    }
    return out;
}
