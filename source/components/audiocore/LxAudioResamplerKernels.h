#pragma once
// The inner sums of the resampler's filter: a table row of 255 single-precision
// coefficients (stored in 256 floats, the last one 0) against windows of 255
// input samples, in single precision with several independent partial sums
// that are added up in double precision at the end.
//
// Each output is a fixed function of its row and its window: the same lanes,
// partial sums and order of additions whichever outputs share a call, so how a
// stream is cut into calls and blocks, and which thread computes an output,
// never changes it. Different kernel sets (processors) may differ in rounding.
//
// Kernel sets: portable C++, AVX2/FMA (8 lanes) and AVX-512 (16 lanes), the
// last two behind the same x86 guards and run-time processor checks as before;
// the best set the processor runs is chosen once.
#include <cstddef>
#include <cstdint>

class LxAudioResamplerKernels {
public:
    static constexpr int kTaps = 255;
    static constexpr int kRowLength = 256;

    // For each of count outputs k and each channel c < channels (1 or 2):
    // y = sum over t < 255 of row[t] * samples[c][starts[jobs[k]] + t], written
    // as out[jobs[k] * outStride + c]. Reads nothing past a window's 255
    // samples. row is 64-byte aligned.
    using RowDotsFunction = void (*)(const float* row, const float* const* samples, int channels,
                                     const int32_t* starts, const int32_t* jobs, int count, float* out,
                                     std::ptrdiff_t outStride);
    // sum over t < len of row[t] * window[t] (len at most 255), in double.
    using DotFunction = double (*)(const float* row, const float* window, int len);

    struct Set {
        const char* name;
        RowDotsFunction rowDots;
        DotFunction dot;
    };

    // The set in use: the fastest this processor runs, unless Select chose another.
    static const Set& Current();
    // Makes the named set ("portable", "avx2", "avx512") the one in use, if
    // the processor runs it; returns whether it did. For tests that reach every
    // set; not to be called while a resampler is working.
    static bool Select(const char* name);
    // Goes back to the fastest set.
    static void SelectBest();
};
