#pragma once
// Deterministic test audio for the benchmarks: a few drifting tones over
// pink-ish noise with a slow level envelope, so that neither the resampler nor
// the Vorbis encoder sees a trivially predictable signal, and no page is silent.
#include <cmath>
#include <cstdint>
#include <vector>

namespace lxbench {

class Signal {
public:
    explicit Signal(uint32_t seed = 12345u) : state_(seed) {}

    // Interleaved float samples in [-1, 1) for frames at rate, channels 1 or 2.
    std::vector<float> Float(int frames, int rate, int channels) {
        std::vector<float> out(static_cast<size_t>(frames) * static_cast<size_t>(channels));
        const double twoPi = 6.283185307179586;
        for (int i = 0; i < frames; ++i) {
            const double t = static_cast<double>(i) / rate;
            const double envelope = 0.55 + 0.35 * std::sin(twoPi * 0.25 * t);
            for (int c = 0; c < channels; ++c) {
                const double tone = 0.25 * std::sin(twoPi * (220.0 + 30.0 * c) * t + 0.7 * std::sin(twoPi * 0.5 * t)) +
                                    0.12 * std::sin(twoPi * 1870.0 * t) + 0.05 * std::sin(twoPi * 6100.0 * t);
                pink_[c] = 0.97 * pink_[c] + 0.03 * Noise();
                out[static_cast<size_t>(i) * channels + c] =
                    static_cast<float>(envelope * (tone + 2.0 * pink_[c] + 0.02 * Noise()));
            }
        }
        return out;
    }

    // The same as signed 16-bit little-endian PCM bytes.
    std::vector<unsigned char> Pcm16(int frames, int rate, int channels) {
        std::vector<float> f = Float(frames, rate, channels);
        std::vector<unsigned char> out(f.size() * 2);
        for (size_t i = 0; i < f.size(); ++i) {
            double x = std::round(f[i] * 32767.0);
            if (x > 32767.0) x = 32767.0;
            if (x < -32768.0) x = -32768.0;
            const auto s = static_cast<uint16_t>(static_cast<int16_t>(x));
            out[2 * i] = static_cast<unsigned char>(s & 0xFF);
            out[2 * i + 1] = static_cast<unsigned char>(s >> 8);
        }
        return out;
    }

private:
    double Noise() {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<double>(state_ >> 8) / 8388608.0 - 1.0;
    }

    uint32_t state_;
    double pink_[2] = {0.0, 0.0};
};

}  // namespace lxbench
