// Several clips mixed into one stream: placement on the timeline, weights,
// padding, output channels, effect clips inside a mix, and refused calls.
#include <gtest/gtest.h>

#include "AssertRecorder.h"
#include "EditModel.h"
#include "LxAudioController.h"
#include "LxAudioEffectClip.h"
#include "LxMultiAudioClipMergedStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"

namespace {

const char* const kClipFile = "source/components/audiocore/LxAudioClip";

}  // namespace

TEST(MergedStream, PlacesWeightsPadsAndAdds) {
    LxAudioController controller;
    std::vector<int16_t> voice = MakeRamp(132300, 1, 3);    // 3 s, mono
    std::vector<int16_t> music = MakeRamp(44100, 2, 4);     // 1 s, stereo
    const int voiceId = StoreClip(controller, voice, 1), musicId = StoreClip(controller, music, 2);
    std::vector<LxAudioClipForMerger> entries{
        LxAudioClipForMerger(voiceId, 0, 0.5f),
        LxAudioClipForMerger(musicId, 1000, {LxAudioClipSectionForMerger(0, 500, 0.5f),
                                             LxAudioClipSectionForMerger(500, -1, 0.25f)})};
    LxMultiAudioClipMergedStream mixed(&controller, entries, LxMergedOutputChoose);
    ASSERT_EQ(mixed.GetNumberOfClips(), 2);
    EXPECT_EQ(mixed.GetNumberOfOutputChannels(), 2);
    EXPECT_EQ(mixed.WorthInFrames(), 132300);

    // Expected: the halved voice everywhere; the music from 1 s to 2 s, its
    // first half second at 0.5 and the rest at 0.25; silence elsewhere.
    std::vector<int16_t> expected = BothSides(voice);
    for (auto& s : expected) s = Scaled(s, 0.5f);
    for (int f = 0; f < 44100; ++f) {
        const float w = f < 22050 ? 0.5f : 0.25f;
        for (int c = 0; c < 2; ++c) {
            int16_t& out = expected[static_cast<size_t>((44100 + f) * 2 + c)];
            out = static_cast<int16_t>(out + Scaled(music[static_cast<size_t>(f * 2 + c)], w));
        }
    }
    mixed.SeekToBeginning();
    EXPECT_EQ(ReadAll(mixed, 2, 17640), expected);

    // A portion plays the same samples from the middle.
    mixed.SetPortionToBePlayedBack(44101, 66151);
    std::vector<int16_t> portion = ReadAll(mixed, 2, 17640);
    EXPECT_EQ(portion, std::vector<int16_t>(expected.begin() + 88200, expected.begin() + 132300));
}

TEST(MergedStream, OutputChannelsAndRefusedReads) {
    LxAudioController controller;
    const int stereo = StoreClip(controller, MakeRamp(8820, 2, 2), 2);
    std::vector<LxAudioClipForMerger> entries{LxAudioClipForMerger(stereo, 0, 1.0f)};
    LxMultiAudioClipMergedStream forcedMono(&controller, entries, LxMergedOutputMono);
    forcedMono.SeekToBeginning();
    EXPECT_EQ(ReadAll(forcedMono, 1).size(), 8820u);

    std::vector<unsigned char> buffer(400, 0x5a);
    int got = -1;
    LxPCMData info;
    const std::string prefix = "LxMultiAudioClipMergedStream::GetNextPCMData, ";
    const std::string channels = prefix + "expectedOutChannelsForMergedClip != expectedOutChannels";
    const std::string metadata = prefix + "outPCMMetaData || accumulate";
    const int channelsLine = SourceLineOf("source/components/audiocore/LxMultiAudioClipMergedStream.cpp", channels);
    const struct {
        const char* name;
        int channels;
        LxPCMData* info;
        bool accumulate;
        std::string message;
        int line;
    } cases[] = {{"stereo asked of mono", 2, nullptr, false, channels, channelsLine},
                 {"metadata", 1, &info, false, metadata, 2368}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AssertRecorder recorder;
        forcedMono.GetNextPCMData(c.channels, buffer.data(), 400, got, c.info, c.accumulate);
        ExpectSingleReport(recorder, c.message, kClipFile, c.line);
        EXPECT_EQ(buffer, std::vector<unsigned char>(400, 0x5a));
        EXPECT_EQ(got, -1);
    }

    // An invalid mode is replaced by the choice once clips are in; only a
    // stream that never got that far keeps it.
    AssertRecorder recorder;
    std::vector<LxAudioClipForMerger> one{LxAudioClipForMerger(stereo, 0, 1.0f)};
    LxMultiAudioClipMergedStream chosen(&controller, one, LxMergedOutputInvalid);
    EXPECT_EQ(chosen.GetNumberOfOutputChannels(), 2);
    recorder.Clear();
    LxMultiAudioClipMergedStream invalid(nullptr, one, LxMergedOutputInvalid);
    EXPECT_EQ(invalid.GetNumberOfOutputChannels(), 1);
    ASSERT_EQ(recorder.Count(), 2u);
    EXPECT_EQ(recorder.Reports()[0].line, 2216);
    EXPECT_EQ(recorder.Reports()[1].line, 2458);
}

TEST(MergedStream, EffectClipsAndOwnedEntries) {
    LxAudioController controller;
    std::vector<int16_t> pcm(44100, 16000);
    auto base = controller.GetClip(StoreClip(controller, pcm, 1));
    // A fade-in clip placed at 500 ms fades in over its own second, not over
    // the padded length: the merger moves the fade's start to the offset.
    std::unique_ptr<LxAudioClip> fade = std::make_unique<LxAudioEffectClip>(*base, LxAudioEffectFadeIn, 0, -1);
    std::vector<LxAudioClipForMerger> entries;
    entries.emplace_back(fade, 500, 1.0f);
    EXPECT_EQ(fade, nullptr);
    const int hum = StoreClip(controller, std::vector<int16_t>(88200, 1), 1);
    entries.emplace_back(hum, 0, 1.0f);
    // Copies of an entry own copies of its clip, still fading.
    std::vector<LxAudioClipForMerger> copies = entries;
    LxMultiAudioClipMergedStream mixed(&controller, copies, LxMergedOutputMono);
    ASSERT_EQ(mixed.GetNumberOfClips(), 2);
    EXPECT_EQ(mixed.WorthInFrames(), 88200);
    mixed.SeekToBeginning();
    std::vector<int16_t> out = ReadAll(mixed, 1);
    ASSERT_EQ(out.size(), 88200u);
    EXPECT_EQ(out[22050], 1);                   // first frame of the fade: level 0
    EXPECT_EQ(out[22050 + 22050], 8000 + 1);    // halfway
    EXPECT_EQ(out[66149], 16000 - 1 + 1);       // last frame of the clip, level 44099/44100
    EXPECT_EQ(out[66150], 1);                   // padding after it

    // An entry that should own a clip but holds none ends the stream, reported.
    std::unique_ptr<LxAudioClip> empty;
    std::vector<LxAudioClipForMerger> broken;
    broken.emplace_back(empty, 0, 1.0f);
    AssertRecorder recorder;
    LxMultiAudioClipMergedStream nothing(&controller, broken, LxMergedOutputMono);
    EXPECT_EQ(nothing.GetNumberOfClips(), 0);
    ASSERT_EQ(recorder.Count(), 2u);
    EXPECT_EQ(recorder.Reports()[0].line, 2250);
    EXPECT_EQ(recorder.Reports()[1].line, 2295);
}
