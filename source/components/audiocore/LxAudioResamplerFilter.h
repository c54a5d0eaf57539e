#pragma once
// One channel of the resampler: a polyphase windowed-sinc filter of 255 taps
// that turns a stream of float samples at one frame rate into a stream at
// another. The filter keeps its phase and its input history between calls, so a
// stream may be fed in chunks of any size.
//
// Rates: both are rounded to integers and reduced by their greatest common
// divisor g. The table holds L = output/g phases (at most 1000) of N = 255
// coefficients each; M = input/g is how far the phase moves per output, in
// units of 1/L input sample. Above 1000 phases the table is capped at 1000 rows,
// M becomes input*1000/output (not integral) and an output between two rows is
// interpolated linearly between them.
//
// History: a double-length buffer of 2*256 samples. Input number index of the
// current cycle sits at history[index + N - 1] and the window of its outputs is
// history[index .. index + N - 1]; once index reaches N the upper half is slid
// down and index starts again from 0, so the buffer moves once per N inputs
// instead of once per sample. The inputs up to the next slide are stored in one
// go before their outputs are computed; an output never reads past its window.
//
// Speed: the inner sums run over contiguous rows and windows, with AVX2/FMA
// kernels chosen at run time where the processor has them; a stereo pair of
// filters runs in one pass that reads each coefficient row once for both
// channels. Results differ from a term-by-term sum only in rounding.
#include <cstddef>
#include <vector>

class LxAudioResamplerFilter {
public:
    static constexpr int kTaps = 255;       // N
    static constexpr int kRowLength = 256;  // room of one table row (N coefficients and a pad)
    static constexpr int kMaxPhases = 1000;

    // A new filter is set to 48000 -> 44100 and not yet designed.
    LxAudioResamplerFilter();
    LxAudioResamplerFilter(const LxAudioResamplerFilter&) = delete;
    LxAudioResamplerFilter& operator=(const LxAudioResamplerFilter&) = delete;

    // Sets both rates and the start position. Ignored while the filter is busy;
    // a rate not above 0 keeps the old one (and one that rounds to 0 counts as
    // 1). Equal rates set L and delay to 0
    // and make the filter a plain copy.
    void SetRates(float inRate, float outRate);
    // Fills the coefficient table and clears the history; skipped when nothing
    // that the table depends on changed since the last design.
    void Design();

    // Filters n samples read from in[0], in[inStride], ... and writes the outputs
    // to out[0], out[outStride], ...; returns the number of outputs. The caller
    // provides room for them (see LxAudioResampler::GetOutputBufferSize).
    unsigned Process(const float* in, std::ptrdiff_t inStride, unsigned n, float* out, std::ptrdiff_t outStride);
    // Two filters of the same rates that have seen the same number of inputs
    // (otherwise nothing is done and 0 returned), over the two channels of a
    // stereo stream in one pass: left reads left[i * inStride], right
    // right[i * inStride]; outputs go to out[2w] and out[2w + 1]. Same results
    // as one Process call per filter, but each table row is read once for both
    // channels. Returns the outputs per channel.
    static unsigned ProcessPair(LxAudioResamplerFilter& leftFilter, LxAudioResamplerFilter& rightFilter,
                                const float* left, const float* right, std::ptrdiff_t inStride, unsigned n,
                                float* out);

    bool HasEqualRates() const { return equalRates; }
    float GetInRate() const { return inRate; }
    float GetOutRate() const { return outRate; }
    int GetPhases() const { return phases; }
    double GetStep() const { return step; }
    int GetDelay() const { return delay; }

private:
    struct DesignKey {
        int taps = 0;
        int phases = 0;
        float inRate = 0.0f;
        float outRate = 0.0f;
        double step = 0.0;
        double attenuation = 0.0;
        double transition = 0.0;
        bool operator==(const DesignKey&) const = default;
    };

    template <int Channels>
    static unsigned Run(LxAudioResamplerFilter* const* filters, const float* const* in, std::ptrdiff_t inStride,
                        unsigned n, float* out, std::ptrdiff_t outStride);
    const double* Row(int p) const { return tableRows + static_cast<std::ptrdiff_t>(p) * rowLength; }
    DesignKey CurrentKey() const;
    static double BesselI0(double z);
    static double Sinc(double x);

    bool designed = false;
    bool busy = false;
    bool equalRates = false;
    int taps = kTaps;
    float inRate = 48000.0f;
    float outRate = 44100.0f;
    int phases = 0;      // L
    double step = 0.0;   // M
    int delay = 0;       // in output samples
    int rowLength = kRowLength;
    DesignKey designKey;
    double phase = 0.0;    // in [0, L)
    double advance = 0.0;  // how far the next output lies behind the next input, in input samples
    int historyIndex = 0;
    std::vector<double> table;    // L rows of kRowLength, from tableRows on (64-byte aligned)
    std::vector<double> history;  // 2 * kRowLength, from historyData on (64-byte aligned)
    double* tableRows = nullptr;
    double* historyData = nullptr;
    double attenuation = 150.0;   // A, dB
    double transition = 0.3;      // T
    double pi = 0.0;
};
