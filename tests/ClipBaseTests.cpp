// The clip base: list operations, silence made from the reserved pages,
// sub-clips, trimming silence, splitting and page renumbering.
#include <gtest/gtest.h>

#include <limits>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

// Clip reports name the clip's source file; the lines of "invalid translation"
// (141) and "empty range" (147) are fixed, the others are looked up.
void ExpectClipReport(AssertRecorder& recorder, const std::string& message, int line = 0) {
    ExpectSingleReport(recorder, message, "source/components/audiocore/LxAudioClip",
                       line ? line : SourceLineOf("source/components/audiocore/LxAudioClipBase.cpp", "\"" + message + "\""));
    recorder.Clear();
}

class ClipBaseTest : public ::testing::Test {
protected:
    LxAudioClipBase Store(const std::vector<int16_t>& pcm, int channels) {
        return LxAudioClipBase(store, StoreClip(store, pcm, channels));
    }
    std::vector<int16_t> Read(const LxAudioClipBase& base, int channels) {
        LxAudioClip clip(store);
        clip.AppendClip(base);
        clip.SeekToBeginning();
        return ReadAll(clip, channels);
    }
    LxPageRange Range(int startPage, int startOffset, int endPage, int endOffset) {
        return LxPageRange(&store, LxAudioVolumeEffect(), startPage, startOffset, endPage, endOffset);
    }
    TempDir tmp;
    LxAudioFile store{tmp.Dir()};
};

}  // namespace

TEST_F(ClipBaseTest, ListOperationsKeepTheOrderGiven) {
    LxAudioClipBase a = Store(MakeRamp(900, 1, 1), 1), b = Store(MakeRamp(1800, 1, 2), 1);
    LxAudioClipBase clip(store);
    clip.AppendClip(a);
    clip.PrependClip(b);
    clip.AppendClip(clip);  // appending itself doubles it
    const LxPageRange ra = a.GetPageRanges()[0], rb = b.GetPageRanges()[0];
    EXPECT_EQ(clip.GetPageRanges(), (std::vector<LxPageRange>{rb, ra, rb, ra}));
    EXPECT_EQ(clip.WorthInDeciSeconds(), 1);  // 0.122 s to the nearest tenth

    // Same pages with other effect parameters are not the same clip; a NaN
    // parameter never compares equal, not even with itself.
    LxAudioClipBase louder(store);
    LxPageRange range = ra;
    range.effect.gain = 1.5f;
    louder.AppendPageRange(range);
    EXPECT_FALSE(louder.IsSameAs(a));
    range.effect.ratio = std::numeric_limits<float>::quiet_NaN();
    louder.ReplaceWith(LxAudioClipBase(store));
    louder.AppendPageRange(range);
    EXPECT_FALSE(louder.IsSameAs(louder));
    // A range of no frames still makes a clip that is not empty.
    LxAudioClipBase zero(store);
    LxPageRange none = a.GetPageRanges()[0];
    none.endOffset = none.startOffset;
    zero.AppendPageRange(none);
    EXPECT_FALSE(zero.IsEmpty());
    EXPECT_EQ(zero.WorthInFrames(), 0);
}

TEST_F(ClipBaseTest, SilenceIsCutFromTheReservedPages) {
    LxAudioClipBase clip(store);
    int added = -1;
    clip.AppendDeciSecondsOfSilence(1, added, false);
    EXPECT_EQ(added, 4410);
    EXPECT_EQ(clip.GetPageRanges()[0], Range(0, 0, 0, 8820));
    // More than the five reserved pages hold: several cut copies.
    LxAudioClipBase longer(store);
    longer.AppendSilenceFrames(441000 + 1000, added, true);
    EXPECT_EQ(added, 442000);
    ASSERT_EQ(longer.GetPageRanges().size(), 2u);
    EXPECT_EQ(longer.GetPageRanges()[0], Range(0, 0, 144, 176400));
    EXPECT_EQ(longer.GetPageRanges()[1], Range(0, 0, 0, 2000));
    EXPECT_EQ(Read(longer, 1), std::vector<int16_t>(442000, 0));

    // Nothing for a negative length; a long silence does not overflow.
    AssertRecorder recorder;
    LxAudioClipBase sound = Store(MakeRamp(900, 1, 1), 1);
    sound.AppendDeciSecondsOfSilence(-3, added, true);
    EXPECT_EQ(added, 0);
    EXPECT_EQ(sound.GetPageRanges().size(), 1u);
    LxAudioClipBase hour(store);
    hour.AppendDeciSecondsOfSilence(50000, added, true);  // 5000 s
    EXPECT_EQ(added, 50000 * 4410);
    EXPECT_EQ(hour.GetPageRanges().size(), 500u);
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST_F(ClipBaseTest, SubClipsCutAtTranslations) {
    LxAudioClipBase a = Store(MakeRamp(900, 1, 1), 1), b = Store(MakeRamp(900, 1, 2), 1);
    LxAudioClipBase clip(store);
    clip.AppendClip(a);
    clip.AppendClip(b);
    std::vector<int16_t> all = Read(clip, 1);
    auto sub = clip.SubClip(clip.Translate(101), clip.Translate(1001));
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(Read(*sub, 1), std::vector<int16_t>(all.begin() + 100, all.begin() + 1000));
    // From exactly the end of range 0 starts with range 1; to exactly the start of
    // range 1 ends with range 0.
    LxPageTranslation endOfFirst{0, a.GetPageRanges()[0].endPage, a.GetPageRanges()[0].endOffset};
    LxPageTranslation startOfSecond{1, b.GetPageRanges()[0].startPage, b.GetPageRanges()[0].startOffset};
    auto second = clip.SubClip(endOfFirst, LxPageTranslation{1, b.GetPageRanges()[0].endPage, 1800});
    ASSERT_EQ(second->GetPageRanges().size(), 1u);
    EXPECT_EQ(second->GetPageRanges()[0], b.GetPageRanges()[0]);
    auto first = clip.SubClip(LxPageTranslation{0, a.GetPageRanges()[0].startPage, 0}, startOfSecond);
    ASSERT_EQ(first->GetPageRanges().size(), 1u);
    EXPECT_EQ(first->GetPageRanges()[0], a.GetPageRanges()[0]);

    AssertRecorder recorder;
    EXPECT_EQ(clip.SubClip(clip.Translate(5), clip.Translate(5)), nullptr);
    ExpectClipReport(recorder, "empty range", 147);
    EXPECT_EQ(clip.SubClip(clip.Translate(1000), clip.Translate(5)), nullptr);
    ExpectClipReport(recorder, "invalid translation", 141);
    EXPECT_EQ(LxAudioClipBase(store).SubClip(LxPageTranslation{0, 0, 0}, LxPageTranslation{0, 0, 4}), nullptr);
    ExpectClipReport(recorder, "empty clip");
}

TEST_F(ClipBaseTest, SplitsAtDeciSecondPoints) {
    LxAudioClipBase clip = Store(MakeRamp(3 * 44100, 2), 2);
    LxAudioClipBaseList pieces;
    clip.Split({10, 20}, pieces);
    ASSERT_EQ(pieces.size(), 3u);
    // A cut lies at the start of frame p x 4410, so a piece ends one frame
    // before the point and the next one starts there: 1.0 s each to the tenth,
    // and no frame lost.
    std::vector<int> frames;
    for (auto& piece : pieces) {
        EXPECT_EQ(piece->WorthInDeciSeconds(), 10);
        frames.push_back(piece->WorthInFrames());
    }
    EXPECT_EQ(frames, (std::vector<int>{44099, 44100, 44101}));

    AssertRecorder recorder;
    pieces.clear();
    clip.Split({10, 30}, pieces);
    EXPECT_EQ(pieces.size(), 1u);  // the pieces made before the bad point stay
    ExpectClipReport(recorder, "splitting point out of bounds");
}

TEST_F(ClipBaseTest, CorrectionShiftsPagesByTheStartPage) {
    LxAudioClipBase clip(store);
    clip.AppendPageRange(Range(180, 0, 216, 10));
    clip.AppendPageRange(Range(252, 0, 288, 10));
    clip.AppendPageRange(Range(360, 0, 396, 10));
    const auto before = clip.GetPageRanges();
    clip.ApplyCorrection({});
    EXPECT_EQ(clip.GetPageRanges(), before);
    clip.ApplyCorrection({{252, 36}, {360, 72}});
    EXPECT_EQ(clip.GetPageRanges(), (decltype(before){Range(180, 0, 216, 10), Range(216, 0, 252, 10), Range(288, 0, 324, 10)}));

    // The record: count, then each range's fields and its one volume effect.
    LxMemoryStream stream;
    clip.WriteToStream(stream);
    EXPECT_EQ(stream.GetBytes().size(), 4u + 3 * (16 + 4 + 4 + 24));
    stream.Seek(0, kLxSeekBegin);
    LxAudioClipBase loaded(store);
    loaded.ReadFromStream(stream);
    EXPECT_TRUE(loaded.IsSameAs(clip));
}

TEST_F(ClipBaseTest, PersistsThroughTheStoreAndStopsAtTheEndOfADamagedRecord) {
    LxAudioClipBase mono = Store(MakeRamp(900, 1, 1), 1);  // clip 1
    LxAudioClipBase stereo = Store(MakeRamp(900, 2, 2), 2);  // clip 2
    LxAudioClipBase clip(store);
    clip.AppendClip(mono);
    clip.AppendClip(stereo);
    LxPageRange louder = stereo.GetPageRanges()[0];
    louder.effect = LxAudioVolumeEffect(2.0f, 1000.0f, 3.0f);
    clip.AppendPageRange(louder);
    int id = clip.WriteToAudioFile();
    EXPECT_EQ(id, 3);
    EXPECT_EQ(clip.WriteToAudioFile(), 4);  // never rewritten in place
    LxAudioClipBase loaded(store, id);
    EXPECT_TRUE(loaded.IsSameAs(clip));
    EXPECT_EQ(loaded.GetPageRanges()[2].effect.threshold, 1000.0f);

    // A count far beyond what the stream holds loads the ranges that are there.
    LxMemoryStream record;
    clip.WriteToStream(record);
    record.Seek(0, kLxSeekBegin);
    int32_t huge = 2000000000;
    record.Xfer(huge);
    record.Seek(0, kLxSeekBegin);
    AssertRecorder recorder;
    LxAudioClipBase damaged(store);
    damaged.ReadFromStream(record);
    EXPECT_TRUE(damaged.IsSameAs(clip));
    ExpectClipReport(recorder, "clip record longer than its stream", 142);
    // A count below 1 leaves the clip empty.
    LxMemoryStream small;
    small.SetWriting(true);
    int32_t count = -5;
    small.Xfer(count);
    small.Seek(0, kLxSeekBegin);
    damaged.ReadFromStream(small);
    EXPECT_TRUE(damaged.IsEmpty());
}

TEST_F(ClipBaseTest, TrimSilenceWalksPagesInWhole180ByteBlocks) {
    // Leading silence that fills a whole stored page (a silent page) and runs
    // on into the next: the new start is on the second page.
    std::vector<int16_t> pcm(88200 + 1000, 0);
    for (size_t i = 88200 + 95; i < pcm.size(); ++i) pcm[i] = 300;
    LxAudioClipBase paged = Store(pcm, 1);
    const LxPageRange& whole = paged.GetPageRanges()[0];
    LxPCMData record;
    EXPECT_TRUE(store.ReadPageHeader(whole.startPage, record) && record.codec == kLxPageCodecSilent);
    EXPECT_EQ(whole.endPage, whole.startPage + 36);
    EXPECT_EQ(whole.endOffset, 1980);  // 2000 bytes rounded down to 180-byte blocks
    float trimmed = -1;
    auto result = paged.TrimSilence(trimmed);
    ASSERT_EQ(result->GetPageRanges().size(), 1u);
    EXPECT_EQ(result->GetPageRanges()[0], Range(whole.endPage, 180, whole.endPage, 1980));
    EXPECT_NEAR(trimmed, (88200 + 90) / 44100.0f, 1e-6);

    // Silence, three sounding ranges, silence: the first sounding range loses
    // its leading zeros, the last its trailing zeros, the middle stays whole
    // (even its own silence).
    LxAudioClipBase head = Store(MakePcm(900, 1, [](int i) { return i < 200 ? 0 : 300; }), 1);
    LxAudioClipBase middle = Store(MakePcm(900, 1, [](int i) { return i < 450 ? 0 : 5; }), 1);
    LxAudioClipBase tail = Store(MakePcm(900, 1, [](int i) { return i < 300 ? 300 : 0; }), 1);
    LxAudioClipBase clip(store);
    int added = 0;
    clip.AppendSilenceFrames(4410, added, true);
    clip.AppendClip(head);
    clip.AppendClip(middle);
    clip.AppendClip(tail);
    clip.AppendSilenceFrames(100, added, true);
    result = clip.TrimSilence(trimmed);
    ASSERT_EQ(result->GetPageRanges().size(), 3u);
    LxPageRange expectedHead = head.GetPageRanges()[0];
    expectedHead.startOffset = 360;  // first non-zero byte 400
    LxPageRange expectedTail = tail.GetPageRanges()[0];
    expectedTail.endOffset = 720;  // last non-zero byte 599
    EXPECT_EQ(result->GetPageRanges()[0], expectedHead);
    EXPECT_EQ(result->GetPageRanges()[1], middle.GetPageRanges()[0]);
    EXPECT_EQ(result->GetPageRanges()[2], expectedTail);
    EXPECT_NEAR(trimmed, (4410 + 180) / 44100.0f, 1e-6);
    EXPECT_EQ(clip.GetPageRanges().size(), 5u);

    // A last sounding byte at a multiple of 180 falls outside the new end.
    std::vector<int16_t> edge(900, 0);
    edge[90] = 256;  // byte 180 is 0x00, byte 181 is 0x01
    edge[10] = 1;    // byte 20
    auto cut = Store(edge, 1).TrimSilence(trimmed);
    EXPECT_EQ(cut->GetPageRanges()[0].startOffset, 0);
    EXPECT_EQ(cut->GetPageRanges()[0].endOffset, 360);
    // All silent: an empty clip, and the trimmed amount in frames, not seconds.
    LxAudioClipBase quiet(store);
    quiet.AppendSilenceFrames(44100, added, true);
    EXPECT_TRUE(quiet.TrimSilence(trimmed)->IsEmpty());
    EXPECT_EQ(trimmed, 44100.0f);

    // Ranges that cannot be walked are kept as they are, with their reports.
    LxAudioClipBase broken(store);
    const LxPageRange reversed = Range(252, 0, 216, 10);
    broken.AppendPageRange(reversed);
    AssertRecorder recorder;
    result = broken.TrimSilence(trimmed);
    ASSERT_EQ(result->GetPageRanges().size(), 1u);
    EXPECT_EQ(result->GetPageRanges()[0], reversed);
    EXPECT_EQ(trimmed, 0.0f);
    EXPECT_GT(recorder.Count(), 0u);
}
