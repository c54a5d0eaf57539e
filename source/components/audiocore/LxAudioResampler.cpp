#include "LxAudioResampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <thread>
#include "LxAudioResamplerFilter.h"
#include "LxAudioResamplerWorker.h"
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioResampler";

LxAudioResampler::LxAudioResampler(unsigned int inRate, const unsigned int& outRate, int channelCount)
    : inFrameRate(inRate), outFrameRate(outRate), channels(channelCount) {
    if (channelCount > 2) throw std::invalid_argument("LxAudioResampler: more than 2 channels");
    if (channelCount < 1) throw std::invalid_argument("LxAudioResampler: no channels");
    for (int c = 0; c < channels; ++c) {
        filters[c] = std::make_unique<LxAudioResamplerFilter>();
        filters[c]->SetRates(static_cast<float>(inFrameRate), static_cast<float>(outFrameRate));
        filters[c]->Design();
        totalDelay += filters[c]->GetDelay();
    }
    delayToDrop = totalDelay;
    if (std::thread::hardware_concurrency() > 1) worker = std::make_unique<LxAudioResamplerWorker>();
}

LxAudioResampler::~LxAudioResampler() = default;

const LxAudioResamplerFilter* LxAudioResampler::GetFilter(int c) const {
    return c >= 0 && c < channels ? filters[c].get() : nullptr;
}

unsigned int LxAudioResampler::GetOutputBufferSize(unsigned int inSamples) const {
    const LxAudioResamplerFilter& f = *filters[0];
    constexpr double kMax = static_cast<double>(std::numeric_limits<unsigned int>::max());

    // The historical size: trunc(inSamples * out / in + 2) in single precision.
    const float listed = static_cast<float>(inSamples) * f.GetOutRate() / f.GetInRate() + 2.0f;
    const double fromRatio = std::min(static_cast<double>(listed), kMax);

    // What Process can write: an unpaired stereo sample from the previous call
    // may complete one more frame, so ceil(inSamples / channels) frames; m
    // frames give at most floor(m * out / in) + 1 outputs per channel, and one
    // more covers rounding in the phase arithmetic.
    const uint64_t frames = (static_cast<uint64_t>(inSamples) + static_cast<uint64_t>(channels) - 1) /
                            static_cast<uint64_t>(channels);
    const double ratio = static_cast<double>(f.GetOutRate()) / static_cast<double>(f.GetInRate());
    const double perChannel = std::floor(static_cast<double>(frames) * ratio) + 2.0;
    const double bound = std::min(perChannel * channels, kMax);

    return static_cast<unsigned int>(std::max(fromRatio, bound));
}

unsigned int LxAudioResampler::Process(const float* in, unsigned int inSamples, float* out, unsigned int outCapacity) {
    if (in == nullptr || inSamples == 0) return 0;
    if (out == nullptr || outCapacity < GetOutputBufferSize(inSamples)) {
        LxAssertFailed("output buffer smaller than GetOutputBufferSize", kSourceFile, __LINE__);
        return 0;
    }

    LxAudioResamplerFilter& left = *filters[0];
    if (left.HasEqualRates()) {
        // Unchanged, in one piece: no filter state to keep aligned.
        std::memmove(out, in, sizeof(float) * inSamples);
        return inSamples;
    }

    LxAudioResamplerWorker* helper = inSamples >= kParallelSamples ? worker.get() : nullptr;
    unsigned int result = 0;
    if (channels == 1) {
        result = left.Process(in, 1, inSamples, out, 1, helper);
    } else {
        // Both filters see the same number of inputs and so produce the same
        // number of outputs; they run side by side and write interleaved.
        LxAudioResamplerFilter& right = *filters[1];
        const float* src = in;
        unsigned int remaining = inSamples;
        if (hasPendingLeft) {
            result += 2 * LxAudioResamplerFilter::ProcessPair(left, right, &pendingLeft, src, 1, 1, out);
            hasPendingLeft = false;
            ++src;
            --remaining;
        }
        const unsigned int frames = remaining / 2;
        if (frames > 0) {
            result += 2 * LxAudioResamplerFilter::ProcessPair(left, right, src, src + 1, 2, frames, out + result, helper);
        }
        if (remaining % 2 != 0) {
            pendingLeft = src[2 * static_cast<size_t>(frames)];
            hasPendingLeft = true;
        }
    }

    if (!delayDropped && delayToDrop > 0) {
        const unsigned int drop = static_cast<unsigned int>(delayToDrop);
        if (result < drop) {
            delayToDrop -= static_cast<int>(result);
            return 0;
        }
        std::memmove(out, out + drop, sizeof(float) * (result - drop));
        delayDropped = true;
        result -= drop;
    }
    return result;
}
