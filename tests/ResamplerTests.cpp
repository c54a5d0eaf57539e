// The resampler against a direct evaluation of its filter, written out here
// sample by sample and term by term, with none of the engine's shortcuts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>
#include "AssertRecorder.h"
#include "LxAudioResampler.h"
#include "LxAudioResamplerFilter.h"

namespace {

constexpr int kTaps = 255;
const double kPi = 4.0 * std::atan(1.0);

// --- the direct evaluation ----------------------------------------------------

double DirectI0(double z) {
    double sum = 1.0;
    for (int k = 1; k <= 19; ++k) {
        const double term = std::pow(z / 2.0, k) / std::tgamma(k + 1.0);
        sum += term * term;
    }
    return sum;
}

double DirectSinc(double x) { return x == 0.0 ? 1.0 : std::sin(x) / x; }

// One channel: rates, start position and coefficient rows from the formulas,
// then the per-sample loop over a double-length history.
struct DirectChannel {
    int L = 0;
    double M = 0.0;
    int delay = 0;
    double phase = 0.0;
    double advance = 0.0;
    bool equal = false;
    std::vector<std::vector<double>> rows;
    std::vector<double> history = std::vector<double>(512, 0.0);
    int index = 0;

    DirectChannel(unsigned in, unsigned out) {
        const int64_t g = std::gcd(static_cast<int64_t>(in), static_cast<int64_t>(out));
        if (out / g > 1000) {
            L = 1000;
            M = static_cast<double>(in) * 1000.0 / static_cast<double>(out);
        } else {
            L = static_cast<int>(out / g);
            M = static_cast<double>(in / g);
        }
        const double d = (kTaps - 1) * 0.5 * out / in;
        delay = static_cast<int>(d);
        const double x = (d - delay + 1e-12) * M + L;
        phase = std::fmod(x, L);
        advance = x / L - 1.0;
        equal = in == out;
        if (equal) return;

        const double A = 150.0, T = 0.3;
        const double f = 12.5 / kTaps;
        const double s = in > out ? M / (L - (T - 0.31) * f * M) : L / (L - T * 0.6 * f * L);
        const double beta = 0.1102 * (A - 8.7);
        const double i0Beta = DirectI0(beta);
        rows.assign(L, std::vector<double>(kTaps));
        for (int p = 0; p < L; ++p) {
            for (int k = 0; k < kTaps; ++k) {
                const double t = (k - 127) - static_cast<double>(p) / L;
                const double w = DirectI0(beta * std::sqrt(1.0 - (t / 128) * (t / 128))) / i0Beta;
                rows[p][k] = w * DirectSinc((t / 127) * kPi * (kTaps - 1) / (2 * s)) / s;
            }
        }
    }

    double Sum(int p, int start) const {
        double y = 0.0;
        for (int j = 0; j < kTaps; ++j) y += rows[p][j] * history[start + j];
        return y;
    }

    std::vector<float> Run(const std::vector<float>& in) {
        if (equal) return in;
        std::vector<float> out;
        for (float sample : in) {
            history[index + kTaps - 1] = sample;
            while (advance < 1.0) {
                const int p = static_cast<int>(std::floor(phase));
                double y = Sum(p, index);
                if (L == 1000) {
                    const double next = p + 1 < L ? Sum(p + 1, index) : Sum(0, index + 1);
                    const double frac = std::fmod(phase, 1.0);
                    y = (1.0 - frac) * y + frac * next;
                }
                out.push_back(static_cast<float>(y));
                const double x = phase + M;
                phase = std::fmod(x, L);
                advance = x / L;
            }
            ++index;
            advance -= 1.0;
            if (index == kTaps) {
                for (int j = 0; j < kTaps; ++j) history[j] = history[kTaps + j];
                index = 0;
            }
        }
        return out;
    }
};

// A whole stream at once: split, filter, interleave, drop the delay. Each
// channel starts from a fresh copy of the designed filter.
std::vector<float> DirectResample(const std::vector<float>& in, const DirectChannel& design, int channels) {
    std::vector<std::vector<float>> outs;
    for (int c = 0; c < channels; ++c) {
        std::vector<float> one;
        for (size_t i = static_cast<size_t>(c); i + channels <= in.size() + c; i += channels) one.push_back(in[i]);
        DirectChannel ch = design;
        outs.push_back(ch.Run(one));
    }
    std::vector<float> out;
    for (size_t i = 0; i < outs[0].size(); ++i)
        for (const auto& o : outs) out.push_back(o[i]);
    out.erase(out.begin(), out.begin() + std::min<size_t>(static_cast<size_t>(channels * design.delay), out.size()));
    return out;
}

// --- feeding the engine -------------------------------------------------------

constexpr size_t kGuard = 32;
constexpr float kSentinel = 12345.0f;

// Feeds in to the resampler in chunks of the given sizes (repeated), each into a
// buffer of exactly GetOutputBufferSize(n) samples followed by a guard region.
std::vector<float> FeedInChunks(LxAudioResampler& rs, const std::vector<float>& in,
                                const std::vector<unsigned>& sizes) {
    std::vector<float> result;
    size_t pos = 0;
    for (size_t c = 0; pos < in.size(); ++c) {
        const unsigned n = static_cast<unsigned>(std::min<size_t>(sizes[c % sizes.size()], in.size() - pos));
        const unsigned capacity = rs.GetOutputBufferSize(n);
        std::vector<float> out(capacity + kGuard, kSentinel);
        const unsigned produced = rs.Process(in.data() + pos, n, out.data(), capacity);
        EXPECT_LE(produced, capacity) << "chunk " << c << " of " << n;
        EXPECT_TRUE(std::all_of(out.begin() + capacity, out.end(), [](float v) { return v == kSentinel; }))
            << "write past the buffer in chunk " << c << " of " << n;
        result.insert(result.end(), out.begin(), out.begin() + produced);
        pos += n;
    }
    return result;
}

// Noise with a tone in it; for two channels, different signals left and right.
std::vector<float> TestSignal(size_t frames, int channels, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> noise(-0.6f, 0.6f);
    std::vector<float> v(frames * channels);
    for (size_t i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            v[i * channels + c] = noise(rng) + 0.3f * static_cast<float>(std::sin(0.01 * (c + 1) * i));
        }
    }
    return v;
}

double MaxDifference(const std::vector<float>& a, const std::vector<float>& b) {
    double worst = 0.0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) worst = std::max(worst, std::fabs(double(a[i]) - b[i]));
    return worst;
}

}  // namespace

TEST(Resampler, RatesGivePhasesStepAndDelay) {
    struct Case {
        unsigned in, out;
        int phases;
        double step;
        int delay;
    };
    const Case cases[] = {
        {48000, 44100, 147, 160.0, 116},
        {11025, 44100, 4, 1.0, 508},
        {44100, 22050, 1, 2.0, 63},
        {44101, 44100, 1000, 44101.0 * 1000.0 / 44100.0, 126},
        {0, 44100, 147, 160.0, 116},  // a rate of 0 keeps the initial 48000
    };
    for (const Case& c : cases) {
        for (int channels = 1; channels <= 2; ++channels) {
            LxAudioResampler rs(c.in, c.out, channels);
            const LxAudioResamplerFilter* f = rs.GetFilter(0);
            ASSERT_NE(f, nullptr);
            EXPECT_EQ(f->GetPhases(), c.phases) << c.in << " -> " << c.out;
            EXPECT_DOUBLE_EQ(f->GetStep(), c.step) << c.in << " -> " << c.out;
            EXPECT_EQ(f->GetDelay(), c.delay) << c.in << " -> " << c.out;
            EXPECT_EQ(rs.GetTotalDelay(), channels * c.delay);
            EXPECT_EQ(rs.GetInFrameRate(), c.in);
            EXPECT_EQ(rs.GetOutFrameRate(), c.out);
            EXPECT_EQ(rs.GetFilter(channels), nullptr);
        }
    }
    LxAudioResampler same(44100, 44100, 2);
    EXPECT_EQ(same.GetTotalDelay(), 0);
    EXPECT_EQ(same.GetFilter(0)->GetPhases(), 0);
}

TEST(Resampler, EqualsDirectEvaluationInUnevenChunks) {
    struct Pair {
        unsigned in, out;
    };
    const Pair pairs[] = {{48000, 44100}, {11025, 44100}, {44100, 22050}, {44101, 44100}, {8000, 44101}};
    // Odd sizes included: a stereo stream is cut in the middle of a frame.
    const std::vector<unsigned> sizes = {1, 2, 3, 1023, 5, 4092, 7, 511, 2046, 4093, 17, 256, 255};
    for (const Pair& pair : pairs) {
        const DirectChannel design(pair.in, pair.out);
        for (int channels = 1; channels <= 2; ++channels) {
            SCOPED_TRACE(testing::Message() << pair.in << " -> " << pair.out << ", " << channels << " channel(s)");
            const size_t frames = pair.in * 6 / 5;
            const std::vector<float> in = TestSignal(frames, channels, pair.in + channels);
            const std::vector<float> expected = DirectResample(in, design, channels);

            LxAudioResampler rs(pair.in, pair.out, channels);
            const std::vector<float> actual = FeedInChunks(rs, in, sizes);
            ASSERT_EQ(actual.size(), expected.size());
            EXPECT_LE(MaxDifference(actual, expected), 1e-6);

            // The same stream in one call gives the same samples exactly.
            LxAudioResampler whole(pair.in, pair.out, channels);
            const std::vector<float> once = FeedInChunks(whole, in, {static_cast<unsigned>(in.size())});
            EXPECT_EQ(once, actual);
        }
    }
}

TEST(Resampler, OutputBufferSizeCoversEveryChunk) {
    // The case that overran the historical size: 11025 -> 44100 stereo in
    // chunks of 1023 samples writes 4096 samples, room was 4094.
    LxAudioResampler rs(11025, 44100, 2);
    EXPECT_GE(rs.GetOutputBufferSize(1023), 4096u);
    std::vector<float> in = TestSignal(11025, 2, 1);
    unsigned largest = 0;
    size_t pos = 0;
    while (pos + 1023 <= in.size()) {
        std::vector<float> out(rs.GetOutputBufferSize(1023) + kGuard, kSentinel);
        const unsigned produced = rs.Process(in.data() + pos, 1023, out.data(), rs.GetOutputBufferSize(1023));
        largest = std::max(largest, produced);
        pos += 1023;
    }
    EXPECT_EQ(largest, 4096u);

    // Every chunk size from 1 to 300 in a row, for several rate pairs.
    std::vector<unsigned> sizes(300);
    std::iota(sizes.begin(), sizes.end(), 1u);
    const unsigned rates[][2] = {{48000, 44100}, {11025, 44100}, {8000, 44100}, {44100, 22050},
                                 {96000, 44100}, {44101, 44100}, {22050, 44101}, {44100, 44100}};
    for (const auto& r : rates) {
        for (int channels = 1; channels <= 2; ++channels) {
            SCOPED_TRACE(testing::Message() << r[0] << " -> " << r[1] << ", " << channels << " channel(s)");
            LxAudioResampler sweep(r[0], r[1], channels);
            FeedInChunks(sweep, TestSignal(45150 / channels, channels, 3), sizes);
        }
    }
}

TEST(Resampler, RefusesAnOutputBufferBelowTheSize) {
    const std::vector<float> in = TestSignal(2000, 1, 5);
    LxAudioResampler rs(48000, 44100, 1);
    const unsigned capacity = rs.GetOutputBufferSize(2000);
    std::vector<float> out(capacity, kSentinel);
    for (float* buffer : {out.data(), static_cast<float*>(nullptr)}) {
        AssertRecorder recorder;
        EXPECT_EQ(rs.Process(in.data(), 2000, buffer, buffer ? capacity - 1 : capacity), 0u);
        ExpectReportFrom(recorder, "output buffer smaller than GetOutputBufferSize", "audiocore/LxAudioResampler");
        EXPECT_EQ(out, std::vector<float>(capacity, kSentinel));
    }
    // The refused calls left no trace: the stream starts afresh.
    AssertRecorder recorder;
    LxAudioResampler fresh(48000, 44100, 1);
    EXPECT_EQ(FeedInChunks(rs, in, {2000}), FeedInChunks(fresh, in, {2000}));
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST(Resampler, EqualRatesAndEmptyOrBadArguments) {
    const std::vector<float> in = TestSignal(7, 1, 9);  // 7 samples: odd for stereo too
    for (int channels = 1; channels <= 2; ++channels) {
        LxAudioResampler rs(44100, 44100, channels);
        std::vector<float> out(rs.GetOutputBufferSize(7));
        EXPECT_EQ(rs.Process(in.data(), 7, out.data(), static_cast<unsigned>(out.size())), 7u);
        EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 7), in);
        EXPECT_EQ(rs.Process(in.data(), 0, out.data(), static_cast<unsigned>(out.size())), 0u);
        EXPECT_EQ(rs.Process(nullptr, 7, out.data(), static_cast<unsigned>(out.size())), 0u);
    }
    EXPECT_THROW(LxAudioResampler(48000, 44100, 3), std::exception);
    EXPECT_THROW(LxAudioResampler(48000, 44100, 0), std::exception);
}
