#include "LxAudioResamplerFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <atomic>
#include <cstring>

#include "LxAudioResamplerKernels.h"
#include "LxAudioResamplerWorker.h"

namespace {

constexpr size_t kAlignFloats = 16;  // 64 bytes

float* AlignedStart(std::vector<float>& v) {
    const uintptr_t address = reinterpret_cast<uintptr_t>(v.data());
    const uintptr_t aligned = (address + 63) & ~static_cast<uintptr_t>(63);
    return v.data() + (aligned - address) / sizeof(float);
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
        std::fill(samples.begin(), samples.end(), 0.0f);
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

    table.assign(static_cast<size_t>(phases) * static_cast<size_t>(rowLength) + kAlignFloats, 0.0f);
    tableRows = AlignedStart(table);
    historyIndex = 0;
    designKey = key;
    designed = true;
    if (phases == 0) {
        samples.clear();
        return;
    }
    samples.assign(static_cast<size_t>(kHistory) + kBlockSamples, 0.0f);
    for (Lists& list : lists) {
        list.row.assign(kBlockOutputs, 0);
        list.start.assign(kBlockOutputs, 0);
        list.order.assign(kBlockOutputs, 0);
        list.rowEnd.assign(static_cast<size_t>(phases) + 1, 0);
        list.blend.assign(phases == kMaxPhases ? kBlockOutputs : 0, 0.0);
        list.noStale.assign(phases == kMaxPhases ? kBlockOutputs : 0, 0);
    }

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
        float* row = tableRows + static_cast<size_t>(p) * static_cast<size_t>(rowLength);
        const double offset = static_cast<double>(p) / L;
        for (int k = 0; k < taps; ++k) {
            const double t = static_cast<double>(k - h) - offset;
            if (attenuation >= 60.0) {
                const double r = t / halfWidth;
                const double w = BesselI0(beta * std::sqrt(1.0 - r * r)) / i0Beta;
                const double x = (t / h) * pi * (taps - 1) / (2.0 * s);
                row[k] = static_cast<float>(w * Sinc(x) / s);
            } else {
                const double y = (t / h) * pi;
                row[k] = static_cast<float>((0.42 + 0.5 * std::cos(y) + 0.08 * std::cos(2.0 * y)) *
                                            Sinc(y * (taps - 1) / (2.0 * s)) / s);
            }
        }
    }
    BuildCycle();
}

// One pass: a walk from a given state over a block, and the sums of the
// outputs it lists.
struct LxAudioResamplerFilter::Pass {
    const LxAudioResamplerFilter* lead = nullptr;  // whose walk and table
    const float* samples[2] = {};
    int channels = 0;
    int blockSamples = 0;
    int next = 0;     // the first input of the walk
    WalkState start{};  // the state it starts from
    float* out = nullptr;  // channel 0 of the pass's first output
    std::ptrdiff_t outStride = 0;
    // The first output no thread has taken yet; whether the caller found none left.
    std::atomic<int> nextOutput{0};
    std::atomic<bool> allTaken{false};
};

void LxAudioResamplerFilter::BuildCycle() {
    // With integral M (no interpolation), the phase after an output is a
    // function of the phase before it, and so are the advance and the inputs
    // taken before the next output: the walk settles into a cycle of L outputs,
    // one per row, once the start phase's fraction has been rounded to the
    // precision of the largest values it meets. The cycle is found by running
    // the walk's own arithmetic from the start phase, and kept only if it closes
    // on exactly the phase it started from. The walk then follows it for as
    // long as its phase is the cycle's, bit for bit, without the arithmetic.
    cycle.clear();
    cycleOfRow.assign(static_cast<size_t>(phases), -1);
    if (phases == 0 || phases == kMaxPhases) return;
    const double L = phases;
    const double M = step;
    auto stepAfter = [&](double ph, double& x) {
        x = ph + M;
        double next = x;
        while (next >= L) next -= L;
        return next;
    };
    double ph = phase;
    double x = 0.0;
    for (int k = 0; k < 4 * phases; ++k) ph = stepAfter(ph, x);
    for (int k = 0; k < phases; ++k) {
        CycleStep s{};
        s.phase = ph;
        s.row = static_cast<int32_t>(ph);
        ph = stepAfter(ph, x);
        s.advance = x / L;
        double adv = s.advance;
        while (adv >= 1.0) {
            adv -= 1.0;
            ++s.inputs;
        }
        if (s.row < 0 || s.row >= phases || cycleOfRow[static_cast<size_t>(s.row)] >= 0) break;
        cycleOfRow[static_cast<size_t>(s.row)] = k;
        cycle.push_back(s);
    }
    if (static_cast<int>(cycle.size()) != phases || ph != cycle[0].phase) {
        cycle.clear();
        std::fill(cycleOfRow.begin(), cycleOfRow.end(), -1);
    }
}

int LxAudioResamplerFilter::Walk(WalkState& state, int blockSamples, int& next, Lists& lists) const {
    // Lists the outputs of the block's inputs from next on, as the filter meets
    // them sample by sample, until the block ends or the lists are full (then
    // next may stop at an input that has outputs left). An output is made while
    // the advance is below 1; otherwise the walk takes the next input.
    const double L = phases;
    const double M = step;
    const bool interpolate = phases == kMaxPhases;
    const int firstStart = kHistory - (taps - 1);
    const bool hasCycle = !cycle.empty();
    int32_t* jobRow = lists.row.data();
    int32_t* jobStart = lists.start.data();
    double ph = state.phase;
    double adv = state.advance;
    int index = state.historyIndex;
    int i = next;
    int count = 0;
    while (i < blockSamples) {
        if (adv >= 1.0) {
            adv -= 1.0;
            ++i;
            index = index + 1 == taps ? 0 : index + 1;
            continue;
        }
        if (count == kBlockOutputs) break;
        const int p = static_cast<int>(ph);
        if (hasCycle) {
            int k = cycleOfRow[static_cast<size_t>(p)];
            if (cycle[static_cast<size_t>(k)].phase == ph) {
                // On the cycle: its outputs up to the last one whose successor
                // still falls in the block and in the lists; then the state
                // right after that output, as the arithmetic would leave it.
                const int from = i;
                for (;;) {
                    const CycleStep& s = cycle[static_cast<size_t>(k)];
                    jobRow[count] = s.row;
                    jobStart[count] = firstStart + i;
                    ++count;
                    k = k + 1 == phases ? 0 : k + 1;
                    if (count < kBlockOutputs && i + s.inputs < blockSamples) {
                        i += s.inputs;
                        continue;
                    }
                    ph = cycle[static_cast<size_t>(k)].phase;
                    adv = s.advance;
                    break;
                }
                index = (index + (i - from)) % taps;
                continue;
            }
        }
        jobRow[count] = p;
        jobStart[count] = firstStart + i;
        if (interpolate) {
            lists.blend[static_cast<size_t>(count)] = ph - p;
            lists.noStale[static_cast<size_t>(count)] = index == taps - 1 ? 1 : 0;
        }
        ++count;
        // x < L + M: the remainder by exact subtraction equals fmod(x, L).
        const double x = ph + M;
        ph = x;
        while (ph >= L) ph -= L;
        adv = x / L;
    }
    state.phase = ph;
    state.advance = adv;
    state.historyIndex = index;
    next = i;
    return count;
}

void LxAudioResamplerFilter::SumPart(const Pass& pass, Lists& lists, int begin, int end) {
    const LxAudioResamplerFilter& f = *pass.lead;
    const LxAudioResamplerKernels::Set& kernels = LxAudioResamplerKernels::Current();
    const int taps = f.taps;
    if (f.phases != kMaxPhases) {
        // The part's outputs in order of their rows (a counting sort), then
        // each row against all its windows.
        const int rows = f.phases;
        const int32_t* jobRow = lists.row.data();
        int32_t* rowEnd = lists.rowEnd.data();
        int32_t* order = lists.order.data() + begin;
        std::fill(rowEnd, rowEnd + rows + 1, 0);
        for (int j = begin; j < end; ++j) ++rowEnd[jobRow[j] + 1];
        for (int r = 0; r < rows; ++r) rowEnd[r + 1] += rowEnd[r];
        for (int j = begin; j < end; ++j) order[rowEnd[jobRow[j]]++] = j;
        int first = 0;
        for (int r = 0; r < rows; ++r) {
            if (rowEnd[r] > first) {
                kernels.rowDots(f.Row(r), pass.samples, pass.channels, lists.start.data(), order + first,
                                rowEnd[r] - first, pass.out, pass.outStride);
            }
            first = rowEnd[r];
        }
        return;
    }
    // Interpolating: each output blends the sums of two rows.
    const int lastPhase = f.phases - 1;
    const float* row0 = f.Row(0);
    const double lastTapOfRow0 = row0[taps - 1];
    for (int j = begin; j < end; ++j) {
        const int p = lists.row[static_cast<size_t>(j)];
        const double blend = lists.blend[static_cast<size_t>(j)];
        for (int c = 0; c < pass.channels; ++c) {
            const float* window = pass.samples[c] + lists.start[static_cast<size_t>(j)];
            const double y = kernels.dot(f.Row(p), window, taps);
            double next = 0.0;
            if (p < lastPhase) {
                next = kernels.dot(f.Row(p + 1), window, taps);
            } else {
                const double stale = lists.noStale[static_cast<size_t>(j)] != 0 ? 0.0 : window[0];
                next = kernels.dot(row0, window + 1, taps - 1) + lastTapOfRow0 * stale;
            }
            pass.out[j * pass.outStride + c] = static_cast<float>((1.0 - blend) * y + blend * next);
        }
    }
}

void LxAudioResamplerFilter::SumParts(Pass& pass, Lists& lists, int count) {
    // Parts of consecutive outputs, a quarter of what is left and at least
    // kPartOutputs / channels: big parts first (a table row serves more
    // outputs), small ones at the end, so that the threads end together.
    const int smallest = kPartOutputs / pass.channels;
    int begin = pass.nextOutput.load(std::memory_order_relaxed);
    for (;;) {
        if (begin >= count) return;
        const int end = std::min(count, begin + std::max(smallest, (count - begin) / 4));
        if (pass.nextOutput.compare_exchange_weak(begin, end, std::memory_order_relaxed)) {
            SumPart(pass, lists, begin, end);
            begin = pass.nextOutput.load(std::memory_order_relaxed);
        }
    }
}

void LxAudioResamplerFilter::WorkerTask(void* context) {
    // The worker walks the pass itself, from the same state, into its own
    // lists: the same outputs as the caller's walk, without reading its lists.
    Pass& pass = *static_cast<Pass*>(context);
    if (pass.allTaken.load(std::memory_order_relaxed)) return;  // taken up too late to help
    const LxAudioResamplerFilter& f = *pass.lead;
    Lists& lists = const_cast<LxAudioResamplerFilter&>(f).lists[1];
    WalkState state = pass.start;
    int next = pass.next;
    const int count = f.Walk(state, pass.blockSamples, next, lists);
    SumParts(pass, lists, count);
}

template <int Channels>
unsigned LxAudioResamplerFilter::Run(LxAudioResamplerFilter* const* filters, const float* const* in,
                                     std::ptrdiff_t inStride, unsigned n, float* out, std::ptrdiff_t outStride,
                                     LxAudioResamplerWorker* worker) {
    // The filters of a pair share rates, table contents and the number of
    // inputs seen, so one walk (that of the first) serves both.
    LxAudioResamplerFilter& f = *filters[0];
    for (int c = 0; c < Channels; ++c) filters[c]->busy = true;
    std::ptrdiff_t written = 0;
    unsigned i = 0;
    while (i < n) {
        const int block = static_cast<int>(std::min<unsigned>(n - i, kBlockSamples));
        const float* blockSamples[2] = {};
        for (int c = 0; c < Channels; ++c) {
            float* dst = filters[c]->samples.data() + kHistory;
            const float* src = in[c] + static_cast<std::ptrdiff_t>(i) * inStride;
            if (inStride == 1) {
                std::memcpy(dst, src, sizeof(float) * static_cast<size_t>(block));
            } else {
                for (int j = 0; j < block; ++j) dst[j] = src[static_cast<std::ptrdiff_t>(j) * inStride];
            }
            blockSamples[c] = filters[c]->samples.data();
        }
        // Outputs a pass may be expected to give (times channels): enough to
        // share with the worker?
        const double expected = static_cast<double>(block) * f.phases / f.step * Channels;
        int next = 0;
        while (next < block) {
            Pass pass;
            pass.lead = &f;
            pass.channels = Channels;
            for (int c = 0; c < Channels; ++c) pass.samples[c] = blockSamples[c];
            pass.blockSamples = block;
            pass.next = next;
            pass.start = WalkState{f.phase, f.advance, f.historyIndex};
            pass.out = out + written * outStride;
            pass.outStride = outStride;
            const bool shared =
                worker != nullptr && expected >= kParallelOutputs && worker->Offer(WorkerTask, &pass);
            WalkState state = pass.start;
            const int count = f.Walk(state, block, next, f.lists[0]);
            f.phase = state.phase;
            f.advance = state.advance;
            f.historyIndex = state.historyIndex;
            if (shared) {
                SumParts(pass, f.lists[0], count);
                pass.allTaken.store(true, std::memory_order_relaxed);
                worker->Finish();
            } else if (count > 0) {
                SumPart(pass, f.lists[0], 0, count);
            }
            written += count;
        }
        for (int c = 0; c < Channels; ++c) {
            float* s = filters[c]->samples.data();
            std::memmove(s, s + block, sizeof(float) * kHistory);
        }
        i += static_cast<unsigned>(block);
    }
    for (int c = 1; c < Channels; ++c) {
        LxAudioResamplerFilter& g = *filters[c];
        g.phase = f.phase;
        g.advance = f.advance;
        g.historyIndex = f.historyIndex;
    }
    for (int c = 0; c < Channels; ++c) filters[c]->busy = false;
    return static_cast<unsigned>(written);
}

unsigned LxAudioResamplerFilter::Process(const float* in, std::ptrdiff_t inStride, unsigned n, float* out,
                                         std::ptrdiff_t outStride, LxAudioResamplerWorker* worker) {
    if (in == nullptr || n == 0) return 0;
    if (equalRates) {
        for (unsigned i = 0; i < n; ++i) {
            out[static_cast<std::ptrdiff_t>(i) * outStride] = in[static_cast<std::ptrdiff_t>(i) * inStride];
        }
        return n;
    }
    if (table.empty() || samples.empty() || phases == 0) return 0;
    LxAudioResamplerFilter* self[1] = {this};
    const float* source[1] = {in};
    return Run<1>(self, source, inStride, n, out, outStride, worker);
}

unsigned LxAudioResamplerFilter::ProcessPair(LxAudioResamplerFilter& leftFilter, LxAudioResamplerFilter& rightFilter,
                                             const float* left, const float* right, std::ptrdiff_t inStride,
                                             unsigned n, float* out, LxAudioResamplerWorker* worker) {
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
    if (leftFilter.table.empty() || leftFilter.samples.empty() || rightFilter.samples.empty() ||
        leftFilter.phases == 0) {
        return 0;
    }
    LxAudioResamplerFilter* pair[2] = {&leftFilter, &rightFilter};
    const float* source[2] = {left, right};
    return Run<2>(pair, source, inStride, n, out, 2, worker);
}
