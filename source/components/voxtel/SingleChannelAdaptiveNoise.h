#pragma once
// Adaptive noise suppressor for one channel of float samples at 44100 frames
// per second, over the speexdsp preprocessor (denoise only: no gain control,
// no voice detection, no dereverberation). The noise estimate adapts as audio
// flows and carries over from call to call, so one object serves a whole
// stream fed in chunks of any size.
//
// The preprocessor works on whole frames of kFrameSamples 16-bit samples and
// itself hands a frame out one frame later (its overlap-add). Process returns
// exactly n samples for n, all delayed by kLatencySamples (two frames, 1024
// samples, 23.2 ms): the first kLatencySamples output samples are silence and
// input sample i comes out as output sample i + kLatencySamples. Nothing is
// dropped or repeated, whatever the chunking; the last kLatencySamples samples
// of a stream stay inside until more input pushes them out. The latency is
// even, so interleaved stereo passed through as one channel keeps its channel
// order.
struct SpeexPreprocessState_;

namespace dsp {

class SingleChannelAdaptiveNoise {
public:
    static constexpr int kSampleRate = 44100;
    static constexpr int kFrameSamples = 512;  // 11.6 ms
    static constexpr int kLatencySamples = 2 * kFrameSamples;

    SingleChannelAdaptiveNoise();
    ~SingleChannelAdaptiveNoise();
    SingleChannelAdaptiveNoise(const SingleChannelAdaptiveNoise&) = delete;
    SingleChannelAdaptiveNoise& operator=(const SingleChannelAdaptiveNoise&) = delete;

    // Denoises n samples of in (full scale +-1.0) into out; in and out may be
    // the same buffer. Samples beyond full scale are clipped to it.
    void Process(float* in, float* out, int n);

private:
    SpeexPreprocessState_* state = nullptr;
    short frame[kFrameSamples] = {};     // input gathered for the next frame
    float previous[kFrameSamples] = {};  // the last denoised frame, handed out sample by sample
    int fill = 0;                        // samples in frame, also the read position in previous
};

}  // namespace dsp
