#include "LxAudioResamplerFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#if (defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)) && !defined(LX_RESAMPLER_PORTABLE)
#define LX_RESAMPLER_X86 1
#include <immintrin.h>
#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#define LX_TARGET_AVX2
#else
#define LX_TARGET_AVX2 __attribute__((target("avx2,fma")))
#endif
#endif

namespace {

constexpr int kRow = LxAudioResamplerFilter::kRowLength;
constexpr size_t kAlignDoubles = 8;  // 64 bytes

// The sums of len coefficients of a table row against one or two history
// windows (len is N, or N - 1 for the one sum whose last term is added apart).
// Independent partial sums keep the multiply-adds in flight; the order of
// summation differs from a plain loop only by rounding. Nothing past len is
// read.
using DotFunction = double (*)(const double* c, const double* h, int len);
using DotPairFunction = void (*)(const double* c, const double* h0, const double* h1, int len, double& y0,
                                 double& y1);

double DotPortable(const double* c, const double* h, int len) {
    double acc[4] = {};
    int k = 0;
    for (; k + 4 <= len; k += 4) {
        for (int j = 0; j < 4; ++j) acc[j] += c[k + j] * h[k + j];
    }
    for (; k < len; ++k) acc[0] += c[k] * h[k];
    return (acc[0] + acc[2]) + (acc[1] + acc[3]);
}

void DotPairPortable(const double* c, const double* h0, const double* h1, int len, double& y0, double& y1) {
    double a[4] = {};
    double b[4] = {};
    int k = 0;
    for (; k + 4 <= len; k += 4) {
        for (int j = 0; j < 4; ++j) {
            a[j] += c[k + j] * h0[k + j];
            b[j] += c[k + j] * h1[k + j];
        }
    }
    for (; k < len; ++k) {
        a[0] += c[k] * h0[k];
        b[0] += c[k] * h1[k];
    }
    y0 = (a[0] + a[2]) + (a[1] + a[3]);
    y1 = (b[0] + b[2]) + (b[1] + b[3]);
}

#if defined(LX_RESAMPLER_X86)
LX_TARGET_AVX2 inline double HorizontalSum(__m256d v) {
    __m128d lo = _mm256_castpd256_pd128(v);
    __m128d hi = _mm256_extractf128_pd(v, 1);
    lo = _mm_add_pd(lo, hi);
    return _mm_cvtsd_f64(_mm_add_sd(lo, _mm_unpackhi_pd(lo, lo)));
}

LX_TARGET_AVX2 double DotAvx2(const double* c, const double* h, int len) {
    __m256d a0 = _mm256_setzero_pd(), a1 = _mm256_setzero_pd(), a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
    __m256d a4 = _mm256_setzero_pd(), a5 = _mm256_setzero_pd(), a6 = _mm256_setzero_pd(), a7 = _mm256_setzero_pd();
    int k = 0;
    for (; k + 32 <= len; k += 32) {
        a0 = _mm256_fmadd_pd(_mm256_load_pd(c + k), _mm256_loadu_pd(h + k), a0);
        a1 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 4), _mm256_loadu_pd(h + k + 4), a1);
        a2 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 8), _mm256_loadu_pd(h + k + 8), a2);
        a3 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 12), _mm256_loadu_pd(h + k + 12), a3);
        a4 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 16), _mm256_loadu_pd(h + k + 16), a4);
        a5 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 20), _mm256_loadu_pd(h + k + 20), a5);
        a6 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 24), _mm256_loadu_pd(h + k + 24), a6);
        a7 = _mm256_fmadd_pd(_mm256_load_pd(c + k + 28), _mm256_loadu_pd(h + k + 28), a7);
    }
    for (; k + 4 <= len; k += 4) a0 = _mm256_fmadd_pd(_mm256_load_pd(c + k), _mm256_loadu_pd(h + k), a0);
    a0 = _mm256_add_pd(_mm256_add_pd(a0, a4), _mm256_add_pd(a1, a5));
    a2 = _mm256_add_pd(_mm256_add_pd(a2, a6), _mm256_add_pd(a3, a7));
    double y = HorizontalSum(_mm256_add_pd(a0, a2));
    for (; k < len; ++k) y += c[k] * h[k];
    return y;
}

LX_TARGET_AVX2 void DotPairAvx2(const double* c, const double* h0, const double* h1, int len, double& y0,
                                double& y1) {
    __m256d a0 = _mm256_setzero_pd(), a1 = _mm256_setzero_pd(), a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
    __m256d b0 = _mm256_setzero_pd(), b1 = _mm256_setzero_pd(), b2 = _mm256_setzero_pd(), b3 = _mm256_setzero_pd();
    int k = 0;
    for (; k + 16 <= len; k += 16) {
        const __m256d c0 = _mm256_load_pd(c + k);
        const __m256d c1 = _mm256_load_pd(c + k + 4);
        const __m256d c2 = _mm256_load_pd(c + k + 8);
        const __m256d c3 = _mm256_load_pd(c + k + 12);
        a0 = _mm256_fmadd_pd(c0, _mm256_loadu_pd(h0 + k), a0);
        b0 = _mm256_fmadd_pd(c0, _mm256_loadu_pd(h1 + k), b0);
        a1 = _mm256_fmadd_pd(c1, _mm256_loadu_pd(h0 + k + 4), a1);
        b1 = _mm256_fmadd_pd(c1, _mm256_loadu_pd(h1 + k + 4), b1);
        a2 = _mm256_fmadd_pd(c2, _mm256_loadu_pd(h0 + k + 8), a2);
        b2 = _mm256_fmadd_pd(c2, _mm256_loadu_pd(h1 + k + 8), b2);
        a3 = _mm256_fmadd_pd(c3, _mm256_loadu_pd(h0 + k + 12), a3);
        b3 = _mm256_fmadd_pd(c3, _mm256_loadu_pd(h1 + k + 12), b3);
    }
    for (; k + 4 <= len; k += 4) {
        const __m256d c0 = _mm256_load_pd(c + k);
        a0 = _mm256_fmadd_pd(c0, _mm256_loadu_pd(h0 + k), a0);
        b0 = _mm256_fmadd_pd(c0, _mm256_loadu_pd(h1 + k), b0);
    }
    double s0 = HorizontalSum(_mm256_add_pd(_mm256_add_pd(a0, a2), _mm256_add_pd(a1, a3)));
    double s1 = HorizontalSum(_mm256_add_pd(_mm256_add_pd(b0, b2), _mm256_add_pd(b1, b3)));
    for (; k < len; ++k) {
        s0 += c[k] * h0[k];
        s1 += c[k] * h1[k];
    }
    y0 = s0;
    y1 = s1;
}

bool HasAvx2AndFma() {
#if defined(_MSC_VER) && !defined(__clang__)
    int info[4];
    __cpuid(info, 0);
    if (info[0] < 7) return false;
    __cpuid(info, 1);
    const bool fma = (info[2] & (1 << 12)) != 0;
    const bool osxsave = (info[2] & (1 << 27)) != 0;
    const bool avx = (info[2] & (1 << 28)) != 0;
    if (!fma || !osxsave || !avx) return false;
    if ((_xgetbv(0) & 0x6) != 0x6) return false;  // the OS saves the ymm registers
    __cpuidex(info, 7, 0);
    return (info[1] & (1 << 5)) != 0;
#else
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#endif
}
#endif

struct Kernels {
    DotFunction dot = DotPortable;
    DotPairFunction dotPair = DotPairPortable;
};

const Kernels& SelectedKernels() {
    static const Kernels kernels = [] {
        Kernels k;
#if defined(LX_RESAMPLER_X86)
        if (HasAvx2AndFma()) {
            k.dot = DotAvx2;
            k.dotPair = DotPairAvx2;
        }
#endif
        return k;
    }();
    return kernels;
}

double* AlignedStart(std::vector<double>& v) {
    const uintptr_t address = reinterpret_cast<uintptr_t>(v.data());
    const uintptr_t aligned = (address + 63) & ~static_cast<uintptr_t>(63);
    return v.data() + (aligned - address) / sizeof(double);
}

uint64_t GreatestCommonDivisor(uint64_t a, uint64_t b) {
    while (b != 0) {
        uint64_t r = a % b;
        a = b;
        b = r;
    }
    return a;
}

// Rates are rounded by adding 0.5 and truncating, kept within 1 .. 2^32 - 1.
uint64_t RoundRate(float rate) {
    double r = static_cast<double>(rate) + 0.5;
    if (r >= 4294967295.0) return 4294967295u;
    if (r < 1.0) return 1u;
    return static_cast<uint64_t>(r);
}

}  // namespace

LxAudioResamplerFilter::LxAudioResamplerFilter() {
    pi = 4.0 * std::atan(1.0);
    SetRates(48000.0f, 44100.0f);
}

void LxAudioResamplerFilter::SetRates(float newInRate, float newOutRate) {
    if (busy) return;
    if (newInRate > 0.0f) inRate = newInRate;
    if (newOutRate > 0.0f) outRate = newOutRate;

    const uint64_t in = RoundRate(inRate);
    const uint64_t out = RoundRate(outRate);
    const uint64_t g = GreatestCommonDivisor(in, out);
    if (out / g > static_cast<uint64_t>(kMaxPhases)) {
        phases = kMaxPhases;
        step = static_cast<double>(in) * 1000.0 / static_cast<double>(out);
    } else {
        phases = static_cast<int>(out / g);
        step = static_cast<double>(in / g);
    }

    // The first output lies (N - 1) / 2 input samples behind the first input;
    // whole output samples of that delay are dropped by the resampler, the
    // fraction is taken up by the start phase.
    const double d = (taps - 1) * 0.5 * static_cast<double>(out) / static_cast<double>(in);
    delay = d < 1.0e9 ? static_cast<int>(d) : 1000000000;  // only absurd rate pairs reach the bound
    const double x = (d - delay + 1e-12) * step + phases;
    phase = std::fmod(x, static_cast<double>(phases));
    advance = x / phases - 1.0;
    historyIndex = 0;

    equalRates = in == out;
    if (equalRates) {
        phases = 0;
        delay = 0;
    }

    // A designed filter follows its rates at once (the table must match L),
    // and a restarted stream starts from a silent history.
    if (designed) {
        Design();
        std::fill(history.begin(), history.end(), 0.0);
    }
}

LxAudioResamplerFilter::DesignKey LxAudioResamplerFilter::CurrentKey() const {
    return DesignKey{taps, phases, inRate, outRate, step, attenuation, transition};
}

double LxAudioResamplerFilter::BesselI0(double z) {
    // 1 + sum over k = 1..19 of ((z/2)^k / k!)^2; always 19 terms.
    const double half = z / 2.0;
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; k <= 19; ++k) {
        term *= half / k;
        sum += term * term;
    }
    return sum;
}

double LxAudioResamplerFilter::Sinc(double x) { return x == 0.0 ? 1.0 : std::sin(x) / x; }

void LxAudioResamplerFilter::Design() {
    const DesignKey key = CurrentKey();
    if (designed && key == designKey) return;

    table.assign(static_cast<size_t>(phases) * static_cast<size_t>(rowLength) + kAlignDoubles, 0.0);
    history.assign(2 * static_cast<size_t>(rowLength) + kAlignDoubles, 0.0);
    tableRows = AlignedStart(table);
    historyData = AlignedStart(history);
    historyIndex = 0;
    designKey = key;
    designed = true;
    if (phases == 0) return;

    const double f = 12.5 / taps;
    const double L = phases;
    const double M = step;
    // Scale: stretches the sinc so that its cut-off sits just at the lower of
    // the two Nyquist frequencies.
    const double s = inRate > outRate ? M / (L - (transition - 0.31) * f * M) : L / (L - transition * 0.6 * f * L);
    const int h = (taps - 1) / 2;          // 127
    const int halfWidth = (taps + 1) / 2;  // 128
    const double beta = 0.1102 * (attenuation - 8.7);
    const double i0Beta = BesselI0(beta);

    for (int p = 0; p < phases; ++p) {
        double* row = tableRows + static_cast<size_t>(p) * static_cast<size_t>(rowLength);
        const double offset = static_cast<double>(p) / L;
        for (int k = 0; k < taps; ++k) {
            const double t = static_cast<double>(k - h) - offset;
            if (attenuation >= 60.0) {
                const double r = t / halfWidth;
                const double w = BesselI0(beta * std::sqrt(1.0 - r * r)) / i0Beta;
                const double x = (t / h) * pi * (taps - 1) / (2.0 * s);
                row[k] = w * Sinc(x) / s;
            } else {
                const double y = (t / h) * pi;
                row[k] = (0.42 + 0.5 * std::cos(y) + 0.08 * std::cos(2.0 * y)) * Sinc(y * (taps - 1) / (2.0 * s)) / s;
            }
        }
    }
}

template <int Channels>
unsigned LxAudioResamplerFilter::Run(LxAudioResamplerFilter* const* filters, const float* const* in,
                                     std::ptrdiff_t inStride, unsigned n, float* out, std::ptrdiff_t outStride) {
    // The filters of a pair share rates, table contents and the number of
    // inputs seen, so one phase walk (that of the first) serves both.
    LxAudioResamplerFilter& f = *filters[0];
    const Kernels& kernels = SelectedKernels();
    const int taps = f.taps;
    const double L = f.phases;
    const double M = f.step;
    const bool interpolate = f.phases == kMaxPhases;
    const int lastPhase = f.phases - 1;
    const double lastTapOfRow0 = f.Row(0)[taps - 1];
    double* hist[Channels];
    for (int c = 0; c < Channels; ++c) {
        filters[c]->busy = true;
        hist[c] = filters[c]->historyData;
    }
    double ph = f.phase;
    double adv = f.advance;
    int index = f.historyIndex;
    std::ptrdiff_t written = 0;

    unsigned i = 0;
    while (i < n) {
        // The inputs up to the next slide go into the history at once; an
        // output reads only the window up to its newest input, so the samples
        // already stored beyond it are never used early.
        const unsigned segment = std::min(n - i, static_cast<unsigned>(taps - index));
        for (int c = 0; c < Channels; ++c) {
            double* dst = hist[c] + index + taps - 1;
            const float* src = in[c] + static_cast<std::ptrdiff_t>(i) * inStride;
            for (unsigned j = 0; j < segment; ++j) {
                dst[j] = static_cast<double>(src[static_cast<std::ptrdiff_t>(j) * inStride]);
            }
        }
        for (unsigned j = 0; j < segment; ++j, ++index) {
            while (adv < 1.0) {
                const int p = static_cast<int>(ph);
                double y[Channels];
                if constexpr (Channels == 1) {
                    y[0] = kernels.dot(f.Row(p), hist[0] + index, taps);
                } else {
                    kernels.dotPair(f.Row(p), hist[0] + index, hist[1] + index, taps, y[0], y[1]);
                }
                if (interpolate) {
                    // Blend with row p + 1; past the last row, with row 0 of
                    // the next input sample: the history read one sample further
                    // on. That window's last slot is not written yet; it still
                    // holds the sample of one cycle before, the window's oldest
                    // (0 in the first cycle and in the cycle's last slot).
                    double next[Channels];
                    if (p < lastPhase) {
                        if constexpr (Channels == 1) {
                            next[0] = kernels.dot(f.Row(p + 1), hist[0] + index, taps);
                        } else {
                            kernels.dotPair(f.Row(p + 1), hist[0] + index, hist[1] + index, taps, next[0], next[1]);
                        }
                    } else {
                        if constexpr (Channels == 1) {
                            next[0] = kernels.dot(f.Row(0), hist[0] + index + 1, taps - 1);
                        } else {
                            kernels.dotPair(f.Row(0), hist[0] + index + 1, hist[1] + index + 1, taps - 1, next[0],
                                            next[1]);
                        }
                        for (int c = 0; c < Channels; ++c) {
                            const double stale = index == taps - 1 ? 0.0 : hist[c][index];
                            next[c] += lastTapOfRow0 * stale;
                        }
                    }
                    const double frac = ph - p;
                    for (int c = 0; c < Channels; ++c) y[c] = (1.0 - frac) * y[c] + frac * next[c];
                }
                for (int c = 0; c < Channels; ++c) out[written * outStride + c] = static_cast<float>(y[c]);
                ++written;
                // x < L + M: the remainder by exact subtraction equals fmod(x, L).
                const double x = ph + M;
                ph = x;
                while (ph >= L) ph -= L;
                adv = x / L;
            }
            adv -= 1.0;
        }
        i += segment;
        if (index == taps) {
            for (int c = 0; c < Channels; ++c) {
                std::memcpy(hist[c], hist[c] + taps, sizeof(double) * static_cast<size_t>(taps));
            }
            index = 0;
        }
    }

    for (int c = 0; c < Channels; ++c) {
        LxAudioResamplerFilter& g = *filters[c];
        g.phase = ph;
        g.advance = adv;
        g.historyIndex = index;
        g.busy = false;
    }
    return static_cast<unsigned>(written);
}

unsigned LxAudioResamplerFilter::Process(const float* in, std::ptrdiff_t inStride, unsigned n, float* out,
                                         std::ptrdiff_t outStride) {
    if (in == nullptr || n == 0) return 0;
    if (equalRates) {
        for (unsigned i = 0; i < n; ++i) {
            out[static_cast<std::ptrdiff_t>(i) * outStride] = in[static_cast<std::ptrdiff_t>(i) * inStride];
        }
        return n;
    }
    if (table.empty() || history.empty() || phases == 0) return 0;
    LxAudioResamplerFilter* self[1] = {this};
    const float* source[1] = {in};
    return Run<1>(self, source, inStride, n, out, outStride);
}

unsigned LxAudioResamplerFilter::ProcessPair(LxAudioResamplerFilter& leftFilter, LxAudioResamplerFilter& rightFilter,
                                             const float* left, const float* right, std::ptrdiff_t inStride,
                                             unsigned n, float* out) {
    if (left == nullptr || right == nullptr || n == 0) return 0;
    const bool lockstep = leftFilter.designed && rightFilter.designed &&
                          leftFilter.designKey == rightFilter.designKey &&
                          leftFilter.equalRates == rightFilter.equalRates && leftFilter.phase == rightFilter.phase &&
                          leftFilter.advance == rightFilter.advance &&
                          leftFilter.historyIndex == rightFilter.historyIndex;
    if (!lockstep) return 0;
    if (leftFilter.equalRates) {
        for (unsigned i = 0; i < n; ++i) {
            out[2 * static_cast<std::ptrdiff_t>(i)] = left[static_cast<std::ptrdiff_t>(i) * inStride];
            out[2 * static_cast<std::ptrdiff_t>(i) + 1] = right[static_cast<std::ptrdiff_t>(i) * inStride];
        }
        return n;
    }
    if (leftFilter.table.empty() || leftFilter.history.empty() || rightFilter.history.empty() ||
        leftFilter.phases == 0) {
        return 0;
    }
    LxAudioResamplerFilter* pair[2] = {&leftFilter, &rightFilter};
    const float* source[2] = {left, right};
    return Run<2>(pair, source, inStride, n, out, 2);
}
