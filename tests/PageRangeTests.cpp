// Page ranges and positions: validation, frame counts, translation of frames
// and times, the two-step increment, and the clip-level walk over ranges.
#include <gtest/gtest.h>

#include <limits>
#include "AssertRecorder.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

const char* const kRangeSource = "source/components/audiocore/LxPageRange";
const char* const kClipSource = "source/components/audiocore/LxAudioClip";

int RangeLine(const char* snippet) { return SourceLineOf("source/components/audiocore/LxPageRange.cpp", snippet); }

// A store with three full stereo pages (180, 216, 252) and a short mono page (288).
class PageRangeTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 3; ++i) AppendPage(store, MakeRamp(44100, 2, i), 2);
        AppendPage(store, MakeRamp(1000, 1, 9), 1);
    }
    LxPageRange Range(int startPage, int startOffset, int endPage, int endOffset) {
        return LxPageRange(&store, LxAudioVolumeEffect(), startPage, startOffset, endPage, endOffset);
    }
    TempDir tmp;
    LxAudioFile store{tmp.Dir()};
};

}  // namespace

TEST_F(PageRangeTest, ValidationReportsEachBrokenInvariant) {
    EXPECT_TRUE(Range(180, 0, 252, 176400).IsValid());
    EXPECT_TRUE(Range(288, 0, 288, 2000).IsValid());
    struct Case {
        LxPageRange range;
        const char* message;
        const char* snippet;
    };
    LxPageRange noFile;
    noFile.startPage = noFile.endPage = 180;
    noFile.startOffset = noFile.endOffset = 0;
    std::vector<Case> cases = {
        {noFile, "NULL Audio File", "\"NULL Audio File\""},
        {Range(216, 0, 180, 0), "invalid range", "// order"},
        {Range(180, 400, 180, 200), "invalid range", "// offsets"},
        {Range(288, 0, 288, 2004), "invalid range", "// one page"},
        {Range(180, 176404, 216, 10), "invalid range", "// start page"},
        {Range(180, 0, 288, 2004), "invalid range", "// end page"},
    };
    for (const Case& c : cases) {
        AssertRecorder recorder;
        EXPECT_FALSE(c.range.IsValid());
        ExpectSingleReport(recorder, c.message, kRangeSource, RangeLine(c.snippet));
        recorder.Clear();
        EXPECT_EQ(c.range.WorthInFrames(), 0);
        int page = 0, offset = 0;
        c.range.Translate(1, page, offset);
        EXPECT_EQ(page, -1);
        EXPECT_EQ(offset, -1);
    }
}

TEST_F(PageRangeTest, CountsFramesWithEachPagesOwnFormatAndStepsAcrossPagesInTwo) {
    EXPECT_EQ(Range(180, 4000, 216, 400).WorthInFrames(), (176400 - 4000) / 4 + 100);
    // Stereo pages then the mono page: 3 x 44100 + 1000 frames.
    EXPECT_EQ(Range(180, 0, 288, 2000).WorthInFrames(), 3 * 44100 + 1000);
    EXPECT_EQ(Range(288, 0, 288, 2000).GetChannels(), 1);
    EXPECT_EQ(Range(180, 0, 288, 2000).GetMaximumNumberOfChannels(), 2);

    LxPageRange range = Range(180, 0, 216, 8);
    int page = 180, offset = 176396;  // the last frame of page 180
    range.IncrementByOneFrame(page, offset);
    EXPECT_EQ(page, 180);
    EXPECT_EQ(offset, 176400);  // just past the page
    range.IncrementByOneFrame(page, offset);
    EXPECT_EQ(page, 216);
    EXPECT_EQ(offset, 0);
    range.IncrementByOneFrame(page, offset);
    range.IncrementByOneFrame(page, offset);
    EXPECT_EQ(offset, 8);  // the end offset itself can be reached
    AssertRecorder recorder;
    range.IncrementByOneFrame(page, offset);
    EXPECT_EQ(page, 216);
    EXPECT_EQ(offset, 8);
    ExpectReportFrom(recorder, "OVerflow. Can't increment pageOffset", "audiocore/LxPageRange");
    recorder.Clear();
    page = 252;
    range.IncrementByOneFrame(page, offset);
    EXPECT_EQ(page, 252);
    ExpectReportFrom(recorder, "invalid arg", "audiocore/LxPageRange");
}

TEST_F(PageRangeTest, ClipTranslationWalksRangesAndClampsPastTheEnd) {
    std::vector<LxPageRange> ranges = {Range(180, 0, 180, 400), Range(288, 200, 288, 2000)};  // 100 + 900 frames
    EXPECT_EQ(LxAudioClipBase::Translate(100, ranges), (LxPageTranslation{0, 180, 396}));  // last frame stays in range 0
    EXPECT_EQ(LxAudioClipBase::Translate(2, {Range(180, 176396, 216, 8)}), (LxPageTranslation{0, 216, 0}));  // next page
    EXPECT_EQ(LxAudioClipBase::Translate(101, ranges), (LxPageTranslation{1, 288, 200}));
    EXPECT_EQ(LxAudioClipBase::Translate(5000, ranges), (LxPageTranslation{1, 288, 2000}));
    EXPECT_EQ(LxAudioClipBase::Translate(5, {}), LxPageTranslation());
    // Times become frames: seconds truncated, milliseconds rounded, at least frame 1.
    std::vector<LxPageRange> long_ = {Range(180, 0, 252, 176400)};
    EXPECT_EQ(LxAudioClipBase::TranslateTimeInMilliSeconds(-5, long_), LxAudioClipBase::Translate(1, long_));
    EXPECT_EQ(LxAudioClipBase::TranslateTimeInMilliSeconds(1, long_).pageOffset, 43 * 4);  // frame 44
    EXPECT_EQ(LxAudioClipBase::TranslateTime(1.0f, long_).pageOffset, 44099 * 4);         // frame 44100
    EXPECT_EQ(LxAudioClipBase::TranslateTimeInDeciSeconds(15, long_), (LxPageTranslation{0, 216, (66150 - 44100 - 1) * 4}));

    // The clip-level increment never leaves its range.
    LxPageTranslation t{0, 180, 396};
    LxAudioClipBase::IncrementTranslationByOneFrame(t, ranges);
    EXPECT_EQ(t, (LxPageTranslation{0, 180, 400}));
    AssertRecorder recorder;
    LxAudioClipBase::IncrementTranslationByOneFrame(t, ranges);
    EXPECT_EQ(t, (LxPageTranslation{0, 180, 400}));
    EXPECT_EQ(recorder.Count(), 1u);
    recorder.Clear();
    // Frame 0 reports the clip-level internal assertion before the range's own.
    LxAudioClipBase::Translate(0, ranges);
    auto reports = recorder.Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].message, "");
    EXPECT_EQ(reports[0].sourceFile, kClipSource);
    EXPECT_EQ(reports[1].message, "Non positive frame index in Translate");
}

TEST_F(PageRangeTest, SilenceIsTheReservedPagesOrAllZeroBytes) {
    // The reserved pages, and any part of them, are silent without reading data.
    EXPECT_EQ(store.GetSilenceRange(), Range(0, 0, 144, 176400));
    EXPECT_TRUE(Range(36, 100, 72, 50).IsSilent());
    // An all-zero page is stored as a silent page (324); the raw page after it
    // (360) is zero for its first 1000 bytes.
    AppendPage(store, std::vector<int16_t>(1000, 0), 1);
    AppendPage(store, MakePcm(1000, 1, [](int i) { return i < 500 ? 0 : 7; }), 1);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(324, record));
    EXPECT_EQ(record.codec, kLxPageCodecSilent);
    EXPECT_TRUE(Range(324, 0, 360, 1000).IsSilent());
    EXPECT_FALSE(Range(324, 0, 360, 1001).IsSilent());  // byte 1000 is 7
    EXPECT_TRUE(Range(360, 1400, 360, 1400).IsSilent());  // no bytes at all
    AssertRecorder recorder;
    EXPECT_FALSE(Range(324, 100, 324, 50).IsSilent());
    ExpectSingleReport(recorder, "invalid range", kRangeSource, RangeLine("// offsets"));
}

TEST_F(PageRangeTest, SerializesItsFieldsAndOneVolumeEffect) {
    LxMemoryStream stream;
    stream.SetWriting(true);
    LxPageRange range(&store, LxAudioVolumeEffect(0.5f, 100.0f, 2.0f), 180, 4000, 216, 400);
    range.Serialize(stream);
    // Four fields, effect count 1, kind 1 (volume), then gain, threshold, ratio.
    ASSERT_EQ(stream.GetBytes().size(), 48u);
    stream.Seek(0, kLxSeekBegin);
    stream.SetWriting(false);
    std::vector<int32_t> ints(6);
    for (int32_t& v : ints) stream.Xfer(v);
    EXPECT_EQ(ints, (std::vector<int32_t>{180, 4000, 216, 400, 1, 1}));
    double values[3] = {};
    for (double& v : values) stream.Xfer(v);
    EXPECT_EQ(values[0], 0.5);
    EXPECT_EQ(values[1], 100.0);
    EXPECT_EQ(values[2], 2.0);
    stream.Seek(0, kLxSeekBegin);
    LxPageRange loaded(&store);
    loaded.Serialize(stream);
    EXPECT_EQ(loaded, range);

    // An effect of unknown kind is reported and its data is not read; a volume
    // effect after it still loads.
    LxMemoryStream odd;
    odd.SetWriting(true);
    for (int32_t v : {216, 8, 216, 16, 2, 7, 1}) odd.Xfer(v);
    for (double v : {3.0, 0.0, 1.0}) odd.Xfer(v);
    odd.Seek(0, kLxSeekBegin);
    odd.SetWriting(false);
    AssertRecorder recorder;
    LxPageRange fromOdd(&store);
    fromOdd.Serialize(odd);
    EXPECT_EQ(fromOdd, LxPageRange(&store, LxAudioVolumeEffect(3.0f, 0, 1.0f), 216, 8, 216, 16));
    ExpectSingleReport(recorder, "", kRangeSource, RangeLine("LxAssertFailed(\"\", kSourceFile, __LINE__);"));
}

namespace {
// Exposes the pair check that sub-clips and edits use.
class TranslationPairProbe : public LxAudioClipBase {
public:
    using LxAudioClipBase::isValidTranslationPair;
};
}  // namespace

TEST_F(PageRangeTest, LaxTranslationPairsAndTimesOutOfRange) {
    AssertRecorder recorder;
    // A pair without an end is refused, but within one range the order of page
    // and offset is not checked.
    EXPECT_FALSE(TranslationPairProbe::isValidTranslationPair({0, 180, 0}, {-1, 180, 8}));
    ExpectSingleReport(recorder, "invalid translation", kClipSource, 141);
    recorder.Clear();
    EXPECT_TRUE(TranslationPairProbe::isValidTranslationPair({0, 180, 8}, {0, 180, 4}));
    EXPECT_TRUE(TranslationPairProbe::isValidTranslationPair({0, 180, 8}, {1, 180, 8}));

    // Times far beyond any clip land just past its end; NaN and negative times
    // land on frame 1.
    std::vector<LxPageRange> ranges = {Range(180, 0, 216, 176400)};
    LxPageTranslation end{0, 216, 176400}, first{0, 180, 0};
    EXPECT_EQ(LxAudioClipBase::TranslateTime(1e12f, ranges), end);
    EXPECT_EQ(LxAudioClipBase::TranslateTime(std::numeric_limits<float>::quiet_NaN(), ranges), first);
    EXPECT_EQ(LxAudioClipBase::TranslateTimeInDeciSeconds(std::numeric_limits<int>::max(), ranges), end);
    EXPECT_EQ(LxAudioClipBase::TranslateTimeInMilliSeconds(std::numeric_limits<int>::min(), ranges), first);
    EXPECT_EQ(recorder.Count(), 0u);
}
