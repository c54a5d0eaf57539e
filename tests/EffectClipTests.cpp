// Fades applied while a clip is played: per-frame levels, mixing into a
// buffer with 16-bit wrap-around, the pass-through and the unsupported kinds.
#include <gtest/gtest.h>

#include <cmath>
#include "AssertRecorder.h"
#include "EditModel.h"
#include "LxAudioController.h"
#include "LxAudioEffectClip.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"

namespace {

std::unique_ptr<LxAudioClip> Store(LxAudioController& controller, const std::vector<int16_t>& pcm, int channels) {
    return controller.GetClip(StoreClip(controller, pcm, channels));
}

// The level of 1-based frame f for a fade starting at frame start (1-based) over duration frames.
float FadeInLevel(int64_t f, int64_t start, int64_t duration) {
    int64_t t = f < start ? 0 : std::min(f - start, duration);
    return static_cast<float>(t) / static_cast<float>(duration);
}

}  // namespace

TEST(EffectClip, FadesStepOncePerFrame) {
    LxAudioController controller;
    const int frames = 132300;  // 3 s, over two pages
    const int channels = 2;  // a fade step covers both samples of a frame
    std::vector<int16_t> pcm = MakeRamp(frames, channels, 5);
    auto clip = Store(controller, pcm, channels);
    struct Case {
        LxAudioEffectEnum effect;
        int startMS, durationMS;
    };
    for (Case c : {Case{LxAudioEffectFadeOut, 500, 250}, Case{LxAudioEffectFadeIn, 2000, -1}}) {
        SCOPED_TRACE(c.startMS);
        LxAudioEffectClip faded(*clip, c.effect, c.startMS, c.durationMS);
        EXPECT_EQ(faded.GetPageRanges(), clip->GetPageRanges());
        const int64_t start = std::lround(c.startMS * 44.1) + 1;
        const int64_t duration = c.durationMS == -1 ? frames : std::lround(c.durationMS * 44.1);
        std::vector<int16_t> expected(pcm.size());
        for (size_t i = 0; i < pcm.size(); ++i) {
            float level = FadeInLevel(static_cast<int64_t>(i / channels) + 1, start, duration);
            if (c.effect == LxAudioEffectFadeOut) level = 1.0f - level;
            expected[i] = Scaled(pcm[i], level);
        }
        faded.SeekToBeginning();
        // Odd chunk sizes put frames of one fade step across reads.
        ASSERT_EQ(ReadAll(faded, channels, 4410 * channels * 2 + 4 * channels), expected);
    }
    // The examples that pin the rounding: frame 1 silent, frame 22051 at level one half.
    auto loud = Store(controller, std::vector<int16_t>(88200, 20000), 1);
    LxAudioEffectClip in(*loud, LxAudioEffectFadeIn, 0, 1000);
    in.SeekToBeginning();
    std::vector<int16_t> out = ReadAll(in, 1);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[22050], 10000);
    EXPECT_EQ(out[44100], 20000);
}

TEST(EffectClip, MixingWrapsAndOtherKinds) {
    LxAudioController controller;
    auto clip = Store(controller, std::vector<int16_t>(44100, 10000), 1);
    // At full level (after the fade), 10000 added to 30000 wraps to -25536.
    LxAudioEffectClip in(*clip, LxAudioEffectFadeIn, 0, 10);
    in.SetPortionToBePlayedBack(1000, 1100);
    std::vector<int16_t> buffer(100, 30000);
    int got = 0;
    in.GetNextPCMData(1, reinterpret_cast<unsigned char*>(buffer.data()), 200, got, nullptr, true);
    EXPECT_EQ(got, 200);
    EXPECT_EQ(buffer[0], -25536);
    EXPECT_EQ(buffer[99], -25536);

    // "None" is the plain clip byte for byte.
    auto ramp = Store(controller, MakeRamp(50040, 2, 8), 2);
    LxAudioEffectClip none(*ramp, LxAudioEffectNone, 0, 500);
    none.SeekToBeginning();
    ramp->SeekToBeginning();
    EXPECT_EQ(ReadAll(none, 2), ReadAll(*ramp, 2));

    // Kinds that are not fades are refused without touching the buffer.
    LxAudioEffectClip odd(*ramp, LxAudioEffectVolume, 0, 500);
    odd.SeekToBeginning();
    std::vector<int16_t> untouched(50, 7);
    int written = -3;
    AssertRecorder recorder;
    odd.GetNextPCMData(2, reinterpret_cast<unsigned char*>(untouched.data()), 100, written, nullptr, false);
    ExpectSingleReport(recorder, "", "source/components/audiocore/LxAudioClip", 1636);
    EXPECT_EQ(written, -3);
    EXPECT_EQ(untouched, std::vector<int16_t>(50, 7));
}
