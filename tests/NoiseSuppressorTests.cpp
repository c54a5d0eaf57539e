// The noise suppressor on a noisy narration-like signal: how much steady noise
// it takes out, what it leaves of the voice, and that it hands back every
// sample once, late by its documented latency.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>
#include "SingleChannelAdaptiveNoise.h"

namespace {

using dsp::SingleChannelAdaptiveNoise;
constexpr int kRate = 44100;
constexpr size_t kLatency = SingleChannelAdaptiveNoise::kLatencySamples;
const double kPi = 4.0 * std::atan(1.0);

std::vector<float> Denoise(SingleChannelAdaptiveNoise& ns, std::vector<float> in, const std::vector<int>& sizes) {
    std::vector<float> out(in.size() + 16, 7.0f);
    size_t pos = 0;
    for (size_t c = 0; pos < in.size(); ++c) {
        const int n = static_cast<int>(std::min<size_t>(sizes[c % sizes.size()], in.size() - pos));
        ns.Process(in.data() + pos, out.data() + pos, n);
        pos += static_cast<size_t>(n);
    }
    for (size_t g = in.size(); g < out.size(); ++g) EXPECT_EQ(out[g], 7.0f) << "written past n";
    out.resize(in.size());
    return out;
}

double LevelDb(const std::vector<float>& v, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t i = from; i < to; ++i) sum += double(v[i]) * v[i];
    return 10.0 * std::log10(sum / double(to - from));
}

// 2 s of pause, 3 s of "speech" (a 140 Hz tone with eight harmonics, in
// syllables of a quarter second with short gaps), 2 s of pause.
struct Narration {
    std::vector<float> clean, noisy;
    std::vector<bool> voiced;
    size_t speechStart = 2 * kRate, speechEnd = 5 * kRate;

    explicit Narration(double noiseDbfs) {
        const size_t total = 7 * kRate;
        clean.assign(total, 0.0f);
        voiced.assign(total, false);
        for (size_t i = speechStart; i < speechEnd; ++i) {
            const double t = double(i - speechStart) / kRate;
            const double envelope = std::pow(std::sin(kPi * 4.0 * t), 2.0);
            double v = 0.0;
            for (int h = 1; h <= 8; ++h) v += std::sin(h * 2.0 * kPi * 140.0 * t) / h;
            clean[i] = static_cast<float>(0.25 * envelope * v);
            voiced[i] = envelope > 0.5;
        }
        std::mt19937 rng(11);
        std::normal_distribution<double> gauss(0.0, std::pow(10.0, noiseDbfs / 20.0));
        noisy.resize(total);
        for (size_t i = 0; i < total; ++i) noisy[i] = clean[i] + static_cast<float>(gauss(rng));
    }
};

}  // namespace

TEST(NoiseSuppressor, LowersSteadyNoiseAndKeepsTheVoice) {
    Narration signal(-30.0);
    SingleChannelAdaptiveNoise ns;
    const std::vector<float> raw = Denoise(ns, signal.noisy, {1001, 7, 513, 2047, 1});
    // Output sample i + latency belongs to input sample i.
    std::vector<float> out(raw.begin() + kLatency, raw.end());
    const std::vector<float>& in = signal.noisy;

    // Noise in the pauses, the first one after 0.75 s of adaptation.
    const size_t beforeFrom = 3 * kRate / 4, beforeTo = signal.speechStart - kRate / 20;
    const double inBefore = LevelDb(in, beforeFrom, beforeTo), outBefore = LevelDb(out, beforeFrom, beforeTo);
    EXPECT_NEAR(inBefore, -30.0, 0.2);
    EXPECT_GE(inBefore - outBefore, 10.0) << "noise " << inBefore << " dB in, " << outBefore << " dB out";

    // The voiced parts keep their level.
    double inVoiced = 0.0, outVoiced = 0.0;
    for (size_t i = signal.speechStart; i < signal.speechEnd; ++i) {
        if (!signal.voiced[i]) continue;
        inVoiced += double(in[i]) * in[i];
        outVoiced += double(out[i]) * out[i];
    }
    const double change = 10.0 * std::log10(outVoiced / inVoiced);
    EXPECT_NEAR(change, 0.0, 3.0) << "voiced level changed by " << change << " dB";
}

TEST(NoiseSuppressor, HandsBackEverySampleOnceAfterTheLatency) {
    // A loud broadband burst on a quiet floor: the suppressor passes it, so the
    // output matches the input best at a lag of exactly the latency.
    std::mt19937 rng(5);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<float> in(3 * kRate);
    for (size_t i = 0; i < in.size(); ++i) {
        const bool burst = i >= kRate && i < 2 * kRate;
        in[i] = static_cast<float>(gauss(rng) * (burst ? 0.2 : 0.001));
    }
    SingleChannelAdaptiveNoise a;
    const std::vector<float> out = Denoise(a, in, {1, 2, 333, 1023, 4093, 5});
    for (size_t i = 0; i < SingleChannelAdaptiveNoise::kFrameSamples; ++i) ASSERT_EQ(out[i], 0.0f) << i;

    size_t bestLag = 0;
    double best = -1.0;
    for (size_t lag = 0; lag < 3000; ++lag) {
        double sum = 0.0;
        for (size_t i = kRate; i < 2 * kRate; ++i) sum += double(in[i]) * out[i + lag];
        if (sum > best) {
            best = sum;
            bestLag = lag;
        }
    }
    EXPECT_EQ(bestLag, kLatency);

    // Any chunking, in place or not, gives the same samples: none is dropped
    // or repeated at chunk or frame boundaries.
    SingleChannelAdaptiveNoise c;
    std::vector<float> inPlace = in;
    for (size_t pos = 0; pos < inPlace.size(); pos += 511) {
        const int n = static_cast<int>(std::min<size_t>(511, inPlace.size() - pos));
        c.Process(inPlace.data() + pos, inPlace.data() + pos, n);
    }
    EXPECT_EQ(inPlace, out);
}
