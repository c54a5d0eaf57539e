#pragma once
// Converts float PCM of one or two interleaved channels from one frame rate to
// another (imported audio on its way to the store's 44100 frames per second).
// Each channel runs its own polyphase windowed-sinc filter of 255 taps with a
// Kaiser window; the filters' delay is dropped from the start of the output, so
// that output sample 0 lines up with input sample 0. The filters keep their
// state between calls: a stream may be fed in chunks of any size and gives the
// same output as when fed at once.
//
// Two rules of the original design are changed here because they corrupt audio:
//
// - Stereo chunks of an odd number of samples. Splitting such a chunk on its
//   own (and duplicating the unpaired last sample into both channels) would
//   shift every later chunk by one sample, so that left and right swap from one
//   chunk to the next. Instead an unpaired trailing sample is kept back and
//   paired with the first sample of the next call. A stream that ends on half a
//   frame loses that half frame.
//
// - Room for the output. The original size query, input samples * rate ratio
//   + 2, is smaller than what a stereo resampler can write (11025 -> 44100 with
//   1023-sample chunks writes 4096 samples into room for 4094).
//   GetOutputBufferSize now returns a bound on what Process can write for that
//   many input samples, and Process checks outCapacity against it: with less
//   room it writes nothing, raises an assertion and returns 0.
//
// Process allocates nothing; the stereo path reads and writes the interleaved
// buffers in place. On a processor with more than one core, a big call
// (kParallelSamples input samples or more) shares its sums with a second
// thread, started by the first such call and kept for the resampler's life;
// the output is the same as from one thread.
#include <memory>
#include "LxAudioCoreExport.h"

class LxAudioResamplerFilter;
class LxAudioResamplerWorker;

class LXAUDIOCORE_API LxAudioResampler {
public:
    // Input samples from which a call may share its work with a second thread.
    static constexpr unsigned int kParallelSamples = 2048;

    // channels must be 1 or 2; other counts throw std::invalid_argument. A rate
    // of 0 keeps the filters' initial 48000 -> 44100 for that side.
    LxAudioResampler(unsigned int inFrameRate, const unsigned int& outFrameRate, int channels);
    virtual ~LxAudioResampler();
    LxAudioResampler(const LxAudioResampler&) = delete;
    LxAudioResampler& operator=(const LxAudioResampler&) = delete;

    unsigned int GetInFrameRate() const { return inFrameRate; }
    unsigned int GetOutFrameRate() const { return outFrameRate; }
    int GetChannels() const { return channels; }
    // Sum of the channel filters' delays, in output samples (interleaved).
    int GetTotalDelay() const { return totalDelay; }

    // Room, in samples, that Process may need for inSamples input samples: the
    // larger of trunc(inSamples * out / in + 2) and, per channel, the outputs of
    // ceil(inSamples / channels) frames plus 2 (saturated to the unsigned range).
    virtual unsigned int GetOutputBufferSize(unsigned int inSamples) const;

    // Resamples inSamples interleaved samples into out and returns the number of
    // samples written (interleaved for two channels). The first calls return
    // fewer samples, or 0, until the filters' delay has been dropped.
    // outCapacity is the room at out; below GetOutputBufferSize(inSamples) the
    // call raises an assertion and returns 0 without consuming the input.
    virtual unsigned int Process(const float* in, unsigned int inSamples, float* out, unsigned int outCapacity);

    // The channel filter of channel c (0 or 1), or null.
    const LxAudioResamplerFilter* GetFilter(int c) const;

private:
    unsigned int inFrameRate;
    unsigned int outFrameRate;
    std::unique_ptr<LxAudioResamplerFilter> filters[2];
    int channels;
    int totalDelay = 0;
    int delayToDrop = 0;
    bool delayDropped = false;
    // A left sample waiting for its right partner from the next call.
    float pendingLeft = 0.0f;
    bool hasPendingLeft = false;
    // Added after the resampler's own fields: the second thread, null on one core.
    std::unique_ptr<LxAudioResamplerWorker> worker;
};
