#include "SingleChannelAdaptiveNoise.h"

#include <algorithm>
#include <speex/speex_preprocess.h>
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/voxtel/SingleChannelAdaptiveNoise";

namespace {

short ToSample(float f) {
    const float x = f * 32768.0f;
    if (x >= 32767.0f) return 32767;
    if (x <= -32768.0f) return -32768;
    if (!(x == x)) return 0;  // NaN
    return static_cast<short>(x >= 0.0f ? x + 0.5f : x - 0.5f);
}

}  // namespace

namespace dsp {

SingleChannelAdaptiveNoise::SingleChannelAdaptiveNoise() {
    state = speex_preprocess_state_init(kFrameSamples, kSampleRate);
    if (state == nullptr) {
        LxAssertFailed("cannot create the noise suppressor", kSourceFile, __LINE__);
        return;
    }
    // Denoise only. Voice detection is off from the start, and setting it
    // prints a warning from the library, so it is only read back.
    spx_int32_t on = 1;
    spx_int32_t off = 0;
    spx_int32_t vad = 0;
    speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_DENOISE, &on);
    speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_AGC, &off);
    speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_DEREVERB, &off);
    speex_preprocess_ctl(state, SPEEX_PREPROCESS_GET_VAD, &vad);
    if (vad != 0) speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_VAD, &off);
}

SingleChannelAdaptiveNoise::~SingleChannelAdaptiveNoise() {
    if (state != nullptr) speex_preprocess_state_destroy(state);
}

void SingleChannelAdaptiveNoise::Process(float* in, float* out, int n) {
    if (in == nullptr || out == nullptr || n <= 0) return;
    int pos = 0;
    while (pos < n) {
        // Take in as many samples as fit into the current frame and hand out as
        // many of the previous frame; the input is read before the output is
        // written, so in and out may be one buffer.
        const int m = std::min(n - pos, kFrameSamples - fill);
        for (int i = 0; i < m; ++i) frame[fill + i] = ToSample(in[pos + i]);
        std::copy(previous + fill, previous + fill + m, out + pos);
        pos += m;
        fill += m;
        if (fill == kFrameSamples) {
            if (state != nullptr) speex_preprocess_run(state, frame);
            for (int i = 0; i < kFrameSamples; ++i) previous[i] = static_cast<float>(frame[i]) * (1.0f / 32768.0f);
            fill = 0;
        }
    }
}

}  // namespace dsp
