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
// Samples: the inputs are taken a block (at most kBlockSamples) at a time into
// a float buffer behind the kHistory inputs that came before (zeros before the
// stream's first); the window of the outputs of input i is inputs i - 254 .. i.
// A block is done in two passes: the phase walk lists its outputs (row, window
// start and, interpolating, the blend) exactly as a sample-by-sample filter
// would meet them, then the sums are formed, the outputs that share a table row
// together (see LxAudioResamplerKernels). When a worker is given and the pass
// is big enough, both threads walk it (each into lists of its own, so that no
// list crosses between cores) and take parts of consecutive outputs from a
// common counter, big ones first. Each output depends only on its row and its
// window, so the cut of a stream into calls, blocks and threads never changes
// it; results differ from a term-by-term double sum only in rounding (single-
// precision products and partial sums, well within 1e-6 of it).
//
// Interpolating between rows, an output past the last row blends with row 0 of
// the next input: inputs i - 253 .. i against its first 254 coefficients, and
// its last coefficient against input i - 254, or 0 when i is the last of a
// cycle of 255 inputs counted from the start of the stream (where the
// double-length history this filter was designed with still held that sample).
#include <cstddef>
#include <cstdint>
#include <vector>

class LxAudioResamplerWorker;

class LxAudioResamplerFilter {
public:
    static constexpr int kTaps = 255;       // N
    static constexpr int kRowLength = 256;  // room of one table row (N coefficients and a pad)
    static constexpr int kMaxPhases = 1000;
    static constexpr int kHistory = 256;         // inputs kept before a block (a window reaches 254 back)
    static constexpr int kBlockSamples = 16384;  // inputs per block
    static constexpr int kBlockOutputs = 16384;  // outputs listed per pass at most
    // Outputs (times channels) of a pass below which a worker is not used, and
    // of the smallest part of the work that the two threads share out.
    static constexpr int kParallelOutputs = 2048;
    static constexpr int kPartOutputs = 512;

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
    // With a worker, big blocks are shared with its thread.
    unsigned Process(const float* in, std::ptrdiff_t inStride, unsigned n, float* out, std::ptrdiff_t outStride,
                     LxAudioResamplerWorker* worker = nullptr);
    // Two filters of the same rates that have seen the same number of inputs
    // (otherwise nothing is done and 0 returned), over the two channels of a
    // stereo stream in one pass: left reads left[i * inStride], right
    // right[i * inStride]; outputs go to out[2w] and out[2w + 1]. Same results
    // as one Process call per filter, but each table row is read once for both
    // channels. Returns the outputs per channel.
    static unsigned ProcessPair(LxAudioResamplerFilter& leftFilter, LxAudioResamplerFilter& rightFilter,
                                const float* left, const float* right, std::ptrdiff_t inStride, unsigned n,
                                float* out, LxAudioResamplerWorker* worker = nullptr);

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

    struct Pass;
    // Where the walk stands: the phase, the advance, and the next input's place
    // in its cycle of N inputs.
    struct WalkState {
        double phase;
        double advance;
        int historyIndex;
    };
    // One output of the phase walk's cycle (see BuildCycle).
    struct CycleStep {
        double phase;     // the phase it is made at
        double advance;   // the advance right after it
        int32_t row;
        int32_t inputs;   // inputs taken before the next output
    };
    // What one thread lists and sorts for a pass: per output its row, the start
    // of its window in samples and, interpolating, the blend and whether the
    // last tap of row 0 meets a 0; the outputs of a part in order of their rows,
    // and where each row's outputs end in that order.
    struct Lists {
        std::vector<int32_t> row;
        std::vector<int32_t> start;
        std::vector<double> blend;
        std::vector<uint8_t> noStale;
        std::vector<int32_t> order;
        std::vector<int32_t> rowEnd;
    };

    template <int Channels>
    static unsigned Run(LxAudioResamplerFilter* const* filters, const float* const* in, std::ptrdiff_t inStride,
                        unsigned n, float* out, std::ptrdiff_t outStride, LxAudioResamplerWorker* worker);
    void BuildCycle();
    int Walk(WalkState& state, int blockSamples, int& next, Lists& lists) const;
    static void SumPart(const Pass& pass, Lists& lists, int begin, int end);
    static void SumParts(Pass& pass, Lists& lists, int count);
    static void WorkerTask(void* pass);
    const float* Row(int p) const { return tableRows + static_cast<std::ptrdiff_t>(p) * rowLength; }
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
    int historyIndex = 0;  // the next input's place in its cycle of N inputs
    std::vector<float> table;    // L rows of kRowLength floats, from tableRows on (64-byte aligned)
    std::vector<float> samples;  // kHistory + kBlockSamples inputs
    float* tableRows = nullptr;
    // The walk's cycle (empty when it has none), and each row's place in it.
    std::vector<CycleStep> cycle;
    std::vector<int32_t> cycleOfRow;
    // This thread's lists, and the worker's.
    Lists lists[2];
    double attenuation = 150.0;   // A, dB
    double transition = 0.3;      // T
    double pi = 0.0;
};
