#pragma once
// Test audio for the lossy codec and the resampler (voice-like sound, pure
// tones), and how close a decode came to it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

// Sample i of a tone of frequency f and amplitude a (of full scale) at rate r.
inline double Tone(double f, double a, double r, int i) { return a * std::sin(2.0 * std::numbers::pi * f * i / r); }

// A fundamental gliding around 200 Hz with sixteen harmonics falling 12 dB per
// octave, as a glottal source does, under about four syllables a second.
inline std::vector<int16_t> VoicePcm(int frames, int channels) {
    constexpr double kPi = 3.14159265358979323846;
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    double phase = 0.0;
    for (int i = 0; i < frames; ++i) {
        const double t = i / 44100.0;
        phase += 2 * kPi * (200.0 + 25.0 * std::sin(2 * kPi * 0.7 * t)) / 44100.0;
        const double envelope = 0.15 + 0.85 * std::pow(std::sin(kPi * 4.0 * t), 2.0);
        double v = 0.0;
        for (int h = 1; h <= 16; ++h) v += std::sin(h * phase + h) / (h * h);
        for (int c = 0; c < channels; ++c)
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(std::lround((c ? 9000.0 : 12000.0) * envelope * v));
    }
    return pcm;
}

// Signal to noise ratio of decoded against original, in dB.
inline double SnrDb(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded) {
    double signal = 0.0, noise = 0.0;
    for (size_t i = 0; i < original.size(); ++i) {
        const double d = static_cast<double>(original[i]) - decoded[i];
        signal += static_cast<double>(original[i]) * original[i];
        noise += d * d;
    }
    return 10.0 * std::log10(signal / std::max(noise, 1e-9));
}
