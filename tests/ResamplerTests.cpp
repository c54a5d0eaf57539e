// The resampler: filter design figures, tones through it in uneven chunks,
// the output buffer bound, refused calls, and its output against the defining
// sum evaluated directly, with every kernel set the processor runs, the same
// whether a stream comes in one call or in pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>
#include "AssertRecorder.h"
#include "LxAudioResampler.h"
#include "LxAudioResamplerFilter.h"
#include "LxAudioResamplerKernels.h"

namespace {

const double kPi = 4.0 * std::atan(1.0);

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

// Sample i of channel c of a signal whose channel c is a sum of tones (frequency,
// amplitude) at the given rate.
using Tones = std::vector<std::vector<std::pair<double, double>>>;
double ToneSample(const Tones& tones, int c, double rate, size_t i) {
    double v = 0.0;
    for (auto [f, a] : tones[static_cast<size_t>(c)]) v += a * std::sin(2.0 * kPi * f * double(i) / rate);
    return v;
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
            EXPECT_EQ(rs.GetFilter(channels), nullptr);
        }
    }
    LxAudioResampler same(44100, 44100, 2);
    EXPECT_EQ(same.GetTotalDelay(), 0);
    EXPECT_EQ(same.GetFilter(0)->GetPhases(), 0);
}

TEST(Resampler, KeepsThePassbandAndRemovesImagesAndAliases) {
    // Each input is a tone the output keeps, plus, going down, a tone above the
    // output's Nyquist frequency that must be filtered out; going up, the images
    // of the tone must not appear. Expected: the kept tones alone, in time.
    struct Case {
        unsigned in, out;
        Tones input, kept;
    };
    const Case cases[] = {
        {96000, 44100, {{{1000, 0.5}, {30000, 0.3}}}, {{{1000, 0.5}}}},
        {11025, 44100, {{{1000, 0.5}}, {{2000, 0.4}}}, {{{1000, 0.5}}, {{2000, 0.4}}}},
        {44101, 44100, {{{440, 0.7}}}, {{{440, 0.7}}}},  // the interpolated many-phase path
    };
    // Odd sizes included: a stereo stream is cut in the middle of a frame.
    const std::vector<unsigned> sizes = {1, 2, 3, 1023, 5, 4092, 7, 511, 2046, 4093, 17, 256, 255};
    for (const Case& c : cases) {
        const int channels = static_cast<int>(c.input.size());
        SCOPED_TRACE(testing::Message() << c.in << " -> " << c.out << ", " << channels << " channel(s)");
        std::vector<float> in(c.in * channels);
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = static_cast<float>(ToneSample(c.input, static_cast<int>(i % channels), c.in, i / channels));
        LxAudioResampler rs(c.in, c.out, channels);
        const std::vector<float> actual = FeedInChunks(rs, in, sizes);
        // The same stream in one call gives the same samples exactly.
        LxAudioResampler whole(c.in, c.out, channels);
        EXPECT_EQ(FeedInChunks(whole, in, {static_cast<unsigned>(in.size())}), actual);
        // One second in, one second less the delay out (the tail is not flushed).
        const size_t frames = actual.size() / static_cast<size_t>(channels);
        EXPECT_NEAR(static_cast<double>(frames), c.out - rs.GetTotalDelay() / channels, 2.0);
        double worst = 0.0;
        for (size_t i = 300; i + 300 < frames; ++i)
            for (int ch = 0; ch < channels; ++ch)
                worst = std::max(worst, std::fabs(actual[i * channels + ch] - ToneSample(c.kept, ch, c.out, i)));
        EXPECT_LT(worst, 1e-3);
    }
}

TEST(Resampler, OutputBufferSizeCoversEveryChunkAndIsRequired) {
    {
        // The case that overran the historical size: 11025 -> 44100 stereo in
        // chunks of 1023 samples writes 4096 samples, room was 4094.
        LxAudioResampler up(11025, 44100, 2);
        EXPECT_GE(up.GetOutputBufferSize(1023), 4096u);
        std::vector<float> noise = TestSignal(11025, 2, 1);
        unsigned largest = 0;
        for (size_t pos = 0; pos + 1023 <= noise.size(); pos += 1023) {
            std::vector<float> out(up.GetOutputBufferSize(1023) + kGuard, kSentinel);
            largest = std::max(largest, up.Process(noise.data() + pos, 1023, out.data(), up.GetOutputBufferSize(1023)));
        }
        EXPECT_EQ(largest, 4096u);
    }
    // A buffer below the size is refused.
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
        EXPECT_EQ(rs.Process(nullptr, 7, out.data(), static_cast<unsigned>(out.size())), 0u);
    }
    EXPECT_THROW(LxAudioResampler(48000, 44100, 3), std::exception);
}

namespace {

// The defining sum, evaluated directly in double precision from the filter's
// design formulas, one term after another: the reference the resampler's
// output must stay within 1e-6 of, however its kernels order and split the sum.
// Above 1000 phases the table keeps 1000 rows and an output blends the sums of
// the rows on either side of its phase; past the last row, the next input's
// row 0, whose last tap meets the window's oldest input (0 on the last input of
// each cycle of 255).
std::vector<double> DirectChannel(const std::vector<double>& input, unsigned inRate, unsigned outRate) {
    constexpr int N = 255, half = 127;
    const double pi = 4.0 * std::atan(1.0);
    unsigned a = inRate, b = outRate;
    while (b != 0) std::tie(a, b) = std::pair{b, a % b};
    const bool interpolate = outRate / a > 1000;
    const int L = interpolate ? 1000 : static_cast<int>(outRate / a);
    const double M = interpolate ? inRate * 1000.0 / outRate : static_cast<double>(inRate / a);
    const double f = 12.5 / N, T = 0.3, beta = 0.1102 * (150.0 - 8.7);
    const double s = inRate > outRate ? M / (L - (T - 0.31) * f * M) : L / (L - T * 0.6 * f * L);
    auto besselI0 = [](double z) {
        double sum = 1.0, term = 1.0;
        for (int k = 1; k <= 19; ++k) {
            term *= (z / 2.0) / k;
            sum += term * term;
        }
        return sum;
    };
    std::vector<double> table(static_cast<size_t>(L) * N);
    for (int p = 0; p < L; ++p) {
        for (int k = 0; k < N; ++k) {
            const double t = (k - half) - static_cast<double>(p) / L;
            const double w = besselI0(beta * std::sqrt(1.0 - (t / 128) * (t / 128))) / besselI0(beta);
            const double x = (t / half) * pi * (N - 1) / (2.0 * s);
            table[static_cast<size_t>(p) * N + k] = w * (x == 0.0 ? 1.0 : std::sin(x) / x) / s;
        }
    }
    const double d = (N - 1) * 0.5 * outRate / inRate;
    const int delay = static_cast<int>(d);
    const double start = (d - delay + 1e-12) * M + L;
    double phase = std::fmod(start, L), advance = start / L - 1.0;
    // The window of input i is inputs i - 254 .. i, zeros before the first.
    std::vector<double> history(N - 1, 0.0);
    history.insert(history.end(), input.begin(), input.end());
    auto sum = [&](int p, size_t from, int terms) {
        double y = 0.0;
        for (int j = 0; j < terms; ++j) y += table[static_cast<size_t>(p) * N + j] * history[from + j];
        return y;
    };
    std::vector<double> out;
    for (size_t i = 0; i < input.size(); ++i) {
        while (advance < 1.0) {
            const int p = static_cast<int>(std::floor(phase));
            double y = sum(p, i, N);
            if (interpolate) {
                const double stale = i % N == N - 1 ? 0.0 : history[i];
                const double next = p + 1 < L ? sum(p + 1, i, N)
                                              : sum(0, i + 1, N - 1) + table[N - 1] * stale;
                y += (phase - p) * (next - y);
            }
            out.push_back(y);
            const double x = phase + M;
            phase = std::fmod(x, L);
            advance = x / L;
        }
        advance -= 1.0;
    }
    out.erase(out.begin(), out.begin() + std::min<size_t>(delay, out.size()));
    return out;
}

}  // namespace

TEST(Resampler, StaysWithinAMillionthOfTheDirectSum) {
    struct Case {
        unsigned in, out;
        int channels;
    };
    const Case cases[] = {{48000, 44100, 1}, {48000, 44100, 2}, {96000, 44100, 1}, {32000, 44100, 2},
                          {11025, 44100, 1}, {8000, 44100, 1},  {44100, 22050, 2}, {44101, 44100, 1}};
    // Calls of every kind: small ones, ones the resampler shares with its
    // second thread, and one of more than a block.
    const std::vector<unsigned> sizes = {4093, 17, 1024, 40000};
    for (const Case& c : cases) {
        const std::vector<float> in = TestSignal(c.in / 2, c.channels, 7);
        std::vector<std::vector<double>> expected(static_cast<size_t>(c.channels));
        for (int ch = 0; ch < c.channels; ++ch) {
            std::vector<double> channel;
            for (size_t i = static_cast<size_t>(ch); i < in.size(); i += static_cast<size_t>(c.channels))
                channel.push_back(in[i]);
            expected[static_cast<size_t>(ch)] = DirectChannel(channel, c.in, c.out);
        }
        for (const char* kernels : {"portable", "avx2", "avx512"}) {
            if (!LxAudioResamplerKernels::Select(kernels)) continue;
            SCOPED_TRACE(testing::Message() << kernels << ", " << c.in << " -> " << c.out << ", " << c.channels
                                            << " channel(s)");
            LxAudioResampler rs(c.in, c.out, c.channels);
            const std::vector<float> actual = FeedInChunks(rs, in, sizes);
            // The same samples from one call.
            LxAudioResampler whole(c.in, c.out, c.channels);
            EXPECT_EQ(FeedInChunks(whole, in, {static_cast<unsigned>(in.size())}), actual);
            const size_t frames = actual.size() / static_cast<size_t>(c.channels);
            ASSERT_EQ(frames, expected[0].size());
            double worst = 0.0;
            for (size_t i = 0; i < frames; ++i)
                for (int ch = 0; ch < c.channels; ++ch)
                    worst = std::max(worst, std::fabs(actual[i * c.channels + ch] - expected[ch][i]));
            EXPECT_LT(worst, 1e-6);
        }
    }
    LxAudioResamplerKernels::SelectBest();
}
