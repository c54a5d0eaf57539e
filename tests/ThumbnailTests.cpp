// Clip thumbnails assembled from page thumbnails, and the normalising gain.
#include <gtest/gtest.h>

#include <cstdlib>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

int16_t Min(uint32_t point) { return static_cast<int16_t>(point & 0xFFFF); }
int16_t Max(uint32_t point) { return static_cast<int16_t>(point >> 16); }

}  // namespace

TEST(Thumbnail, PointsFollowTheClipsRangesAcrossPagesAndAverageStereo) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    // Mono, 2.5 pages: group g of 90 samples peaks at +g and dips to -2g.
    const int frames = 2 * 88200 + 44100;
    std::vector<int16_t> pcm = MakePcm(frames, 1, [](int i) {
        int g = (i / 90) % 10000;
        return i % 90 == 5 ? g : i % 90 == 6 ? -2 * g : 0;
    });
    LxAudioClip clip(store, StoreClip(store, pcm, 1));
    EXPECT_EQ(clip.ThumbnailWorthInFrames(), frames / 90);
    clip.LoadThumbnail();
    ASSERT_EQ(clip.GetNumberOfFramesInThumbnail(), frames / 90);
    for (int n : {979, 980, 1960, 2449, 5}) {
        uint32_t point = static_cast<uint32_t>(clip.GetNthFrameInThumbnail(n));
        EXPECT_EQ(Max(point), n) << n;
        EXPECT_EQ(Min(point), -2 * n) << n;
    }
    EXPECT_EQ(clip.GetNthFrameInThumbnail(frames / 90), 0);

    void* data = nullptr;
    int bytes = 0;
    clip.GetAudioThumbnail(&data, &bytes);
    ASSERT_EQ(bytes, (frames / 90) * 4);
    auto* points = static_cast<uint32_t*>(data);
    EXPECT_EQ(Max(points[1500]), 1500);
    std::free(data);

    // A range starting mid-page takes only the points it covers.
    LxAudioClip part(store);
    part.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 180, 200 * 180, 216, 50 * 180));
    EXPECT_EQ(part.ThumbnailWorthInFrames(), 830);
    part.LoadThumbnail();
    ASSERT_EQ(part.GetNumberOfFramesInThumbnail(), 830);
    // In this order: walking backwards through the segments works as well as forwards.
    for (int n : {0, 779, 780, 3}) EXPECT_EQ(Max(static_cast<uint32_t>(part.GetNthFrameInThumbnail(n))), 200 + n) << n;

    // A short stereo clip: each point averages the channels' extremes.
    LxAudioClip stereo(store, StoreClip(store, MakePcm(900, 2, [](int i) { return i % 2 ? 100 : -300; }), 2));
    EXPECT_EQ(stereo.ThumbnailWorthInFrames(), 10);
    stereo.LoadThumbnail();
    ASSERT_EQ(stereo.GetNumberOfFramesInThumbnail(), 10);
    // min (-300 + 0) / 2, max (0 + 100) / 2.
    EXPECT_EQ(Min(static_cast<uint32_t>(stereo.GetNthFrameInThumbnail(3))), -150);
    EXPECT_EQ(Max(static_cast<uint32_t>(stereo.GetNthFrameInThumbnail(3))), 50);
}

TEST(Thumbnail, BestVolumeScalesTheLoudestSideToFullScale) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    auto peaks = [](int high, int low) {
        return MakePcm(900, 1, [=](int i) { return i == 400 ? high : i == 500 ? low : 0; });
    };
    LxAudioClip positive(store, StoreClip(store, peaks(16383, -100), 1));
    {
        AssertRecorder recorder;
        EXPECT_EQ(positive.GetBestVolume(1, 900), 1.0f);
        ExpectSingleReport(recorder, "thumbnail not loaded. Use LoadThumbnail()", "source/components/audiocore/LxAudioClip",
                           SourceLineOf("source/components/audiocore/LxAudioClip.cpp", "\"thumbnail not loaded."));
    }
    positive.LoadThumbnail();
    EXPECT_FLOAT_EQ(positive.GetBestVolume(1, 900), 32767.0f / 16383.0f);
    EXPECT_EQ(positive.GetBestVolume(800, 1), 1.0f);  // first point after last

    LxAudioClip negative(store, StoreClip(store, peaks(100, -16384), 1));
    negative.LoadThumbnail();
    EXPECT_FLOAT_EQ(negative.GetBestVolume(1, 900), 2.0f);
}
