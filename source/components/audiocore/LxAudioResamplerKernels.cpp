#include "LxAudioResamplerKernels.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#if (defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)) && !defined(LX_RESAMPLER_PORTABLE)
#define LX_RESAMPLER_X86 1
#include <immintrin.h>
#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#define LX_TARGET_AVX2
#define LX_TARGET_AVX512
#else
#define LX_TARGET_AVX2 __attribute__((target("avx2,fma")))
#define LX_TARGET_AVX512 __attribute__((target("avx512f,avx2,fma")))
#endif
#endif

namespace {

constexpr int kTaps = LxAudioResamplerKernels::kTaps;

// --- portable ----------------------------------------------------------------------------
// Double-precision sums of the float products, four partial sums.

double DotPortable(const float* row, const float* window, int len) {
    double acc[4] = {};
    int t = 0;
    for (; t + 4 <= len; t += 4) {
        for (int j = 0; j < 4; ++j) acc[j] += static_cast<double>(row[t + j]) * static_cast<double>(window[t + j]);
    }
    for (; t < len; ++t) acc[0] += static_cast<double>(row[t]) * static_cast<double>(window[t]);
    return (acc[0] + acc[2]) + (acc[1] + acc[3]);
}

void RowDotsPortable(const float* row, const float* const* samples, int channels, const int32_t* starts,
                     const int32_t* jobs, int count, float* out, std::ptrdiff_t outStride) {
    for (int k = 0; k < count; ++k) {
        const int32_t job = jobs[k];
        for (int c = 0; c < channels; ++c)
            out[job * outStride + c] = static_cast<float>(DotPortable(row, samples[c] + starts[job], kTaps));
    }
}

#if defined(LX_RESAMPLER_X86)
// --- AVX2 / FMA --------------------------------------------------------------------------

LX_TARGET_AVX2 inline double HorizontalSum(__m256d v) {
    __m128d lo = _mm256_castpd256_pd128(v);
    const __m128d hi = _mm256_extractf128_pd(v, 1);
    lo = _mm_add_pd(lo, hi);
    return _mm_cvtsd_f64(_mm_add_sd(lo, _mm_unpackhi_pd(lo, lo)));
}

// The eight lanes of two float partial sums, added up in double.
LX_TARGET_AVX2 inline double SumInDouble(__m256 a, __m256 b) {
    const __m256d a0 = _mm256_cvtps_pd(_mm256_castps256_ps128(a));
    const __m256d a1 = _mm256_cvtps_pd(_mm256_extractf128_ps(a, 1));
    const __m256d b0 = _mm256_cvtps_pd(_mm256_castps256_ps128(b));
    const __m256d b1 = _mm256_cvtps_pd(_mm256_extractf128_ps(b, 1));
    return HorizontalSum(_mm256_add_pd(_mm256_add_pd(a0, a1), _mm256_add_pd(b0, b1)));
}

// The row is taken a quarter (64 coefficients, eight registers) at a time
// across up to kBatch outputs of a channel, so that each coefficient is loaded once per
// batch instead of once per output. An output keeps two partial sums of eight
// lanes (even and odd vectors of the row, 16 terms per lane), parked between
// quarters. The last vector of the row has seven coefficients; its eighth lane
// is not loaded from the window.
constexpr int kBatch = 32;

template <int Quarter>
LX_TARGET_AVX2 inline void QuarterAvx2(const float* row, const float* samples, const int32_t* starts,
                                       const int32_t* jobs, int count, float (*partial)[16], float* out,
                                       std::ptrdiff_t outStride) {
    const float* c = row + 64 * Quarter;
    const __m256 c0 = _mm256_load_ps(c), c1 = _mm256_load_ps(c + 8), c2 = _mm256_load_ps(c + 16),
                 c3 = _mm256_load_ps(c + 24), c4 = _mm256_load_ps(c + 32), c5 = _mm256_load_ps(c + 40),
                 c6 = _mm256_load_ps(c + 48), c7 = _mm256_load_ps(c + 56);
    const __m256i seven = _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, -1, 0);
    for (int k = 0; k < count; ++k) {
        const int32_t job = jobs[k];
        const float* h = samples + starts[job] + 64 * Quarter;
        __m256 a, b;
        if constexpr (Quarter == 0) {
            a = _mm256_mul_ps(c0, _mm256_loadu_ps(h));
            b = _mm256_mul_ps(c1, _mm256_loadu_ps(h + 8));
        } else {
            a = _mm256_fmadd_ps(c0, _mm256_loadu_ps(h), _mm256_load_ps(partial[k]));
            b = _mm256_fmadd_ps(c1, _mm256_loadu_ps(h + 8), _mm256_load_ps(partial[k] + 8));
        }
        a = _mm256_fmadd_ps(c2, _mm256_loadu_ps(h + 16), a);
        b = _mm256_fmadd_ps(c3, _mm256_loadu_ps(h + 24), b);
        a = _mm256_fmadd_ps(c4, _mm256_loadu_ps(h + 32), a);
        b = _mm256_fmadd_ps(c5, _mm256_loadu_ps(h + 40), b);
        a = _mm256_fmadd_ps(c6, _mm256_loadu_ps(h + 48), a);
        if constexpr (Quarter == 3) {
            b = _mm256_fmadd_ps(c7, _mm256_maskload_ps(h + 56, seven), b);
            out[job * outStride] = static_cast<float>(SumInDouble(a, b));
        } else {
            b = _mm256_fmadd_ps(c7, _mm256_loadu_ps(h + 56), b);
            _mm256_store_ps(partial[k], a);
            _mm256_store_ps(partial[k] + 8, b);
        }
    }
}

LX_TARGET_AVX2 void RowDotsAvx2(const float* row, const float* const* samples, int channels, const int32_t* starts,
                                const int32_t* jobs, int count, float* out, std::ptrdiff_t outStride) {
    alignas(32) float partial[kBatch][16];
    for (int first = 0; first < count; first += kBatch) {
        const int n = std::min(kBatch, count - first);
        const int32_t* batch = jobs + first;
        for (int c = 0; c < channels; ++c) {
            QuarterAvx2<0>(row, samples[c], starts, batch, n, partial, out + c, outStride);
            QuarterAvx2<1>(row, samples[c], starts, batch, n, partial, out + c, outStride);
            QuarterAvx2<2>(row, samples[c], starts, batch, n, partial, out + c, outStride);
            QuarterAvx2<3>(row, samples[c], starts, batch, n, partial, out + c, outStride);
        }
    }
}

LX_TARGET_AVX2 double DotAvx2(const float* row, const float* window, int len) {
    __m256 a0 = _mm256_setzero_ps(), a1 = _mm256_setzero_ps(), a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    int t = 0;
    for (; t + 32 <= len; t += 32) {
        a0 = _mm256_fmadd_ps(_mm256_load_ps(row + t), _mm256_loadu_ps(window + t), a0);
        a1 = _mm256_fmadd_ps(_mm256_load_ps(row + t + 8), _mm256_loadu_ps(window + t + 8), a1);
        a2 = _mm256_fmadd_ps(_mm256_load_ps(row + t + 16), _mm256_loadu_ps(window + t + 16), a2);
        a3 = _mm256_fmadd_ps(_mm256_load_ps(row + t + 24), _mm256_loadu_ps(window + t + 24), a3);
    }
    for (; t + 8 <= len; t += 8) a0 = _mm256_fmadd_ps(_mm256_load_ps(row + t), _mm256_loadu_ps(window + t), a0);
    double y = SumInDouble(a0, a1) + SumInDouble(a2, a3);
    for (; t < len; ++t) y += static_cast<double>(row[t]) * static_cast<double>(window[t]);
    return y;
}

// --- AVX-512 -----------------------------------------------------------------------------

// The whole row stays in sixteen registers for all the outputs (and channels)
// of a call. An output keeps four partial sums of sixteen lanes (vectors 0, 4, 8, 12 of the
// row; 1, 5, 9, 13; ...: four terms per lane), added in pairs, then widened to
// double for the sum over the lanes. The last vector's sixteenth lane is not
// loaded. (The zero-masked forms of the conversions and extractions: GCC's
// plain forms start from an undefined register and warn about it.)
LX_TARGET_AVX512 inline double SumInDouble512(__m512 v) {
    const __m512d bits = _mm512_castps_pd(v);
    const __m512d lo = _mm512_maskz_cvtps_pd(0xFF, _mm256_castpd_ps(_mm512_maskz_extractf64x4_pd(0xF, bits, 0)));
    const __m512d hi = _mm512_maskz_cvtps_pd(0xFF, _mm256_castpd_ps(_mm512_maskz_extractf64x4_pd(0xF, bits, 1)));
    const __m512d s = _mm512_add_pd(lo, hi);
    return HorizontalSum(_mm256_add_pd(_mm512_maskz_extractf64x4_pd(0xF, s, 0), _mm512_maskz_extractf64x4_pd(0xF, s, 1)));
}

LX_TARGET_AVX512 void RowDotsAvx512(const float* row, const float* const* samples, int channels,
                                   const int32_t* starts, const int32_t* jobs, int count, float* out,
                                   std::ptrdiff_t outStride) {
    const __m512 c0 = _mm512_load_ps(row), c1 = _mm512_load_ps(row + 16), c2 = _mm512_load_ps(row + 32),
                 c3 = _mm512_load_ps(row + 48), c4 = _mm512_load_ps(row + 64), c5 = _mm512_load_ps(row + 80),
                 c6 = _mm512_load_ps(row + 96), c7 = _mm512_load_ps(row + 112), c8 = _mm512_load_ps(row + 128),
                 c9 = _mm512_load_ps(row + 144), c10 = _mm512_load_ps(row + 160), c11 = _mm512_load_ps(row + 176),
                 c12 = _mm512_load_ps(row + 192), c13 = _mm512_load_ps(row + 208),
                 c14 = _mm512_load_ps(row + 224), c15 = _mm512_load_ps(row + 240);
    const __mmask16 fifteen = 0x7FFF;
    for (int n = 0; n < count * channels; ++n) {
        const int k = channels == 1 ? n : n >> 1;
        const int c = channels == 1 ? 0 : n & 1;
        const int32_t job = jobs[k];
        const float* h = samples[c] + starts[job];
        __m512 a = _mm512_mul_ps(c0, _mm512_loadu_ps(h));
        __m512 b = _mm512_mul_ps(c1, _mm512_loadu_ps(h + 16));
        __m512 e = _mm512_mul_ps(c2, _mm512_loadu_ps(h + 32));
        __m512 f = _mm512_mul_ps(c3, _mm512_loadu_ps(h + 48));
        a = _mm512_fmadd_ps(c4, _mm512_loadu_ps(h + 64), a);
        b = _mm512_fmadd_ps(c5, _mm512_loadu_ps(h + 80), b);
        e = _mm512_fmadd_ps(c6, _mm512_loadu_ps(h + 96), e);
        f = _mm512_fmadd_ps(c7, _mm512_loadu_ps(h + 112), f);
        a = _mm512_fmadd_ps(c8, _mm512_loadu_ps(h + 128), a);
        b = _mm512_fmadd_ps(c9, _mm512_loadu_ps(h + 144), b);
        e = _mm512_fmadd_ps(c10, _mm512_loadu_ps(h + 160), e);
        f = _mm512_fmadd_ps(c11, _mm512_loadu_ps(h + 176), f);
        a = _mm512_fmadd_ps(c12, _mm512_loadu_ps(h + 192), a);
        b = _mm512_fmadd_ps(c13, _mm512_loadu_ps(h + 208), b);
        e = _mm512_fmadd_ps(c14, _mm512_loadu_ps(h + 224), e);
        f = _mm512_fmadd_ps(c15, _mm512_maskz_loadu_ps(fifteen, h + 240), f);
        out[job * outStride + c] = static_cast<float>(SumInDouble512(_mm512_add_ps(_mm512_add_ps(a, b), _mm512_add_ps(e, f))));
    }
}

// --- processor checks --------------------------------------------------------------------

#if defined(_MSC_VER) && !defined(__clang__)
bool CpuHas(bool avx512) {
    int info[4];
    __cpuid(info, 0);
    if (info[0] < 7) return false;
    __cpuid(info, 1);
    const bool fma = (info[2] & (1 << 12)) != 0;
    const bool osxsave = (info[2] & (1 << 27)) != 0;
    const bool avx = (info[2] & (1 << 28)) != 0;
    if (!fma || !osxsave || !avx) return false;
    const unsigned long long xcr0 = _xgetbv(0);
    if ((xcr0 & 0x6) != 0x6) return false;  // the OS saves the ymm registers
    __cpuidex(info, 7, 0);
    if ((info[1] & (1 << 5)) == 0) return false;  // AVX2
    if (!avx512) return true;
    if ((xcr0 & 0xE0) != 0xE0) return false;  // ... and the zmm and mask registers
    return (info[1] & (1 << 16)) != 0;        // AVX-512F
}
#else
bool CpuHas(bool avx512) {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) return false;
    return !avx512 || __builtin_cpu_supports("avx512f");
}
#endif
#endif

const LxAudioResamplerKernels::Set kPortable{"portable", RowDotsPortable, DotPortable};
#if defined(LX_RESAMPLER_X86)
const LxAudioResamplerKernels::Set kAvx2{"avx2", RowDotsAvx2, DotAvx2};
const LxAudioResamplerKernels::Set kAvx512{"avx512", RowDotsAvx512, DotAvx2};
#endif

const LxAudioResamplerKernels::Set* Runnable(const char* name) {
    if (std::strcmp(name, "portable") == 0) return &kPortable;
#if defined(LX_RESAMPLER_X86)
    if (std::strcmp(name, "avx2") == 0 && CpuHas(false)) return &kAvx2;
    if (std::strcmp(name, "avx512") == 0 && CpuHas(true)) return &kAvx512;
#endif
    return nullptr;
}

const LxAudioResamplerKernels::Set* Best() {
    static const LxAudioResamplerKernels::Set* const best = [] {
        for (const char* name : {"avx512", "avx2"}) {
            if (const LxAudioResamplerKernels::Set* set = Runnable(name)) return set;
        }
        return &kPortable;
    }();
    return best;
}

std::atomic<const LxAudioResamplerKernels::Set*> selected{nullptr};

}  // namespace

const LxAudioResamplerKernels::Set& LxAudioResamplerKernels::Current() {
    const Set* set = selected.load(std::memory_order_acquire);
    return set != nullptr ? *set : *Best();
}

bool LxAudioResamplerKernels::Select(const char* name) {
    const Set* set = name != nullptr ? Runnable(name) : nullptr;
    if (set == nullptr) return false;
    selected.store(set, std::memory_order_release);
    return true;
}

void LxAudioResamplerKernels::SelectBest() { selected.store(nullptr, std::memory_order_release); }
