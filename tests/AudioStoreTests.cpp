// The store's page format and member files, byte by byte: reserved silence,
// page records and thumbnails, reading with channel conversion, damaged records,
// copying pages between stores.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <set>
#include <string>
#include <thread>
#include "AssertRecorder.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPCMDataStream.h"
#include "PcmHelpers.h"
#include "StoreAccess.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

const char* const kPcm = "audiocore/LxPCMDataStream";
const LxAudioVolumeEffect kUnit;

// The page's thumbnail as read into a buffer of bufferBytes: the samples it got.
std::vector<int16_t> Thumbnail(LxAudioFile& store, int page, int bufferBytes) {
    std::vector<int16_t> thumb(static_cast<size_t>(bufferBytes) / 2, 7);
    int got = 0;
    store.ReadPageThumbnail(page, thumb.data(), bufferBytes, got);
    thumb.resize(static_cast<size_t>(got) / 2);
    return thumb;
}

}  // namespace

// The example of the format documentation, "A new store, byte by byte".
TEST(AudioStore, WritesTheDocumentedBytesAndReopensAsItWas) {
    TempDir tmp;
    const std::vector<uint8_t> silent = Le32({3, 176400, 0, 0, 0, 0, 1, 44100, 16});
    std::vector<uint8_t> fiveSilent;
    for (int r = 0; r < 5; ++r) fiveSilent.insert(fiveSilent.end(), silent.begin(), silent.end());
    StoreFiles kept;
    {
        LxAudioFile store(tmp.Dir());
        store.Flush();
        EXPECT_EQ(FileBytes(tmp.Child("pcm.lxa")), fiveSilent);
        EXPECT_EQ(FileBytes(tmp.Child("map.lxa")), Le32({0}));
        EXPECT_EQ(MemberSizes(store), (std::vector<int>{0, 0, 180, 0, 4}));
        EXPECT_EQ(store.GetSilenceRange(), LxPageRange(&store, kUnit, 0, 0, 144, 176400));
        EXPECT_EQ(store.GetSilenceRange().WorthInFrames(), 5 * 88200);

        EXPECT_EQ(AppendPage(store, MakeRamp(100, 1), 1), 180);
        LxAudioClipBase clip(store);
        clip.AppendPageRange(LxPageRange(&store, kUnit, 180, 0, 180, 200));
        ASSERT_EQ(store.WriteClip(clip), 1);
        store.Flush();
        std::vector<uint8_t> pcm = fiveSilent, sound = Le32({1, 200, 0, 200, 0, 4, 1, 44100, 16});
        pcm.insert(pcm.end(), sound.begin(), sound.end());
        EXPECT_EQ(FileBytes(tmp.Child("pcm.lxa")), pcm);
        EXPECT_EQ(tmp.Child("raw.lxa").GetLength(), 200);
        EXPECT_EQ(tmp.Child("enc.lxa").GetLength(), 4);
        // The clip record: count, four page fields, one volume effect of three doubles.
        std::vector<uint8_t> record = Le32({1, 180, 0, 180, 200, 1, 1});
        for (uint8_t high : {0xF0, 0x00, 0xF0}) record.insert(record.end(), {0, 0, 0, 0, 0, 0, high, uint8_t(high ? 0x3F : 0)});
        EXPECT_EQ(FileBytes(tmp.Child("clip.lxa")), record);
        EXPECT_EQ(FileBytes(tmp.Child("map.lxa")), Le32({1, 1, 0}));
        // Closing without destroying keeps the files for a reopen.
        store.Close();
        kept = KeepStoreFiles(tmp.Dir());
    }
    EXPECT_FALSE(tmp.Child("pcm.lxa").Exists());  // members go with the store
    RestoreStoreFiles(tmp.Dir(), kept);
    LxAudioFile reopened(tmp.Dir());
    EXPECT_EQ(tmp.Child("pcm.lxa").GetLength(), 216);  // no second set of silent pages
    EXPECT_EQ(LxAudioClipBase(reopened, 1).WorthInFrames(), 100);
    EXPECT_EQ(reopened.GetSilenceRange().endPage, 144);
}

TEST(AudioStore, PagesStoreDataThumbnailsAndSilence) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    EXPECT_EQ(AppendPage(store, MakePcm(900, 1, [](int) { return 100; }), 1), 180);
    EXPECT_EQ(AppendPage(store, MakePcm(900, 1, [](int) { return -100; }), 1), 216);
    EXPECT_EQ(AppendPage(store, MakePcm(89, 2, [](int i) { return i; }), 2), 252);
    LxPCMData record = PageRecord(store, 180);
    EXPECT_EQ(record.dataRange, (LxRange{0, 1800}));
    EXPECT_EQ(record.thumbnailRange, (LxRange{0, 40}));
    // Thumbnail pairs start at 0: all 100 gives {0, 100}; all -100 gives {-100, 0}.
    std::vector<int16_t> thumb = Thumbnail(store, 180, 40);
    ASSERT_EQ(thumb.size(), 20u);
    EXPECT_EQ(std::vector<int16_t>(thumb.begin(), thumb.begin() + 2), (std::vector<int16_t>{0, 100}));
    thumb = Thumbnail(store, 216, 40);
    EXPECT_EQ(std::vector<int16_t>(thumb.begin(), thumb.begin() + 2), (std::vector<int16_t>{-100, 0}));
    // 89 stereo frames: no full group, an empty thumbnail range at the end of "enc.lxa".
    record = PageRecord(store, 252);
    EXPECT_EQ(record.thumbnailRange, (LxRange{80, 80}));
    EXPECT_EQ(record.dataRange, (LxRange{3600, 3600 + 356}));

    // An all-zero page stores no data, yet its thumbnail bytes stay in "enc.lxa".
    EXPECT_EQ(AppendPage(store, std::vector<int16_t>(88200, 0), 2), 288);
    record = PageRecord(store, 288);
    EXPECT_EQ(record.codec, 3);
    EXPECT_EQ(record.thumbnailRange, (LxRange{0, 0}));
    store.Flush();
    EXPECT_EQ(tmp.Child("enc.lxa").GetLength(), 80 + 1960);
    EXPECT_EQ(tmp.Child("raw.lxa").GetLength(), 3956);
    // Silent pages report a zero thumbnail of the size asked.
    EXPECT_EQ(Thumbnail(store, 288, 16), std::vector<int16_t>(8, 0));

    // Stereo thumbnail: the channels' extremes averaged (truncating).
    EXPECT_EQ(AppendPage(store, MakePcm(90, 2, [](int i) { return i % 2 ? 101 : -300; }), 2), 324);
    EXPECT_EQ(Thumbnail(store, 324, 40), (std::vector<int16_t>{-150, 50}));
}

TEST(AudioStore, ReadsPagesWithChannelConversionAndMarksDamagedOnes) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> mono = MakeRamp(1000, 1);
    int monoPage = AppendPage(store, mono, 1);
    int stereoPage = AppendPage(store, MakePcm(1000, 2, [](int i) { return i % 2 ? -7 : 1000 + i; }), 2);
    // Mono into a stereo request of 1000 bytes: 250 samples, each doubled.
    std::vector<int16_t> out(2000, 0);
    int got = 0;
    store.ReadPageData(PageRecord(store, monoPage), 2, out.data(), 1000, got);
    EXPECT_EQ(got, 1000);
    for (size_t i = 0; i < 500; ++i) ASSERT_EQ(out[i], mono[i / 2]) << i;
    // Stereo as mono: half the bytes, the truncated average of each pair.
    LxPCMData record = PageRecord(store, stereoPage);
    store.ReadPageData(record, 1, out.data(), 4000, got);
    EXPECT_EQ(got, 2000);
    EXPECT_EQ(out[0], (1000 - 7) / 2);
    EXPECT_EQ(out[1], (1002 - 7) / 2);

    // Records that no page of this store can have.
    AssertRecorder recorder;
    LxPCMData damaged = record;
    damaged.codec = 7;
    std::vector<uint8_t> bytes(200, 0xAA);
    store.ReadPageData(damaged, 2, bytes.data(), 100, got);
    EXPECT_EQ(got, 100);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 2), 100);  // marked as near-silence,
    EXPECT_EQ(bytes[100], 0xAA);                                // and not a byte further
    ExpectReportFrom(recorder, "Unknown Codec", kPcm);
    recorder.Clear();
    damaged = record;
    damaged.channels = 3;
    store.ReadPageData(damaged, 2, bytes.data(), 100, got);
    ExpectReportFrom(recorder, "Not supported format!", kPcm);
    recorder.Clear();
    // A length beyond a page, or data beyond "raw.lxa": reported, never read past.
    damaged = record;
    damaged.pcmBytes = 1 << 30;
    damaged.dataRange = {0, 1 << 30};
    std::vector<uint8_t> page(176400);
    store.ReadPageData(damaged, 2, page.data(), 176400, got);
    EXPECT_EQ(got, 4000 + 2000);  // what "raw.lxa" really holds from that start
    EXPECT_EQ(recorder.Count(), 1u);
    recorder.Clear();
    // A header beyond "pcm.lxa" reads as nothing.
    EXPECT_FALSE(store.ReadPageHeader(100000, record));
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST(AudioStore, ClipIDsFollowTheLargestAndRunOutCleanly) {
    TempDir tmp;
    StoreFiles saved;
    {
        LxAudioFile store(tmp.Dir());
        LxAudioClipBase clip(store);
        clip.AppendPageRange(store.GetSilenceRange());
        for (int id = 1; id <= 3; ++id) EXPECT_EQ(store.WriteClip(clip), id);
        store.Flush();
        saved = KeepStoreFiles(tmp.Dir());
    }
    // Tables written by hand (every entry points at the first record): gaps are
    // never reused, a table that holds the largest int has no ID left to give.
    // Damaged tables keep what can be read and report once: IDs below 1 name no
    // clip, a count beyond the pairs, an ID twice (its first position kept).
    struct Case {
        std::vector<uint8_t> map;
        int next;
        size_t reports;
    };
    const Case cases[] = {
        {Le32({2, 1, 0, 7, 0}), 8, 0},
        {Le32({1, INT_MAX, 0}), -1, 1},
        {Le32({2, -1, 0, 0, 0}), 1, 1},
        {Le32({5, 1, 0, 1, 99}), 2, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.next);
        StoreFiles files = saved;
        files["map.lxa"] = c.map;
        RestoreStoreFiles(tmp.Dir(), files);
        AssertRecorder recorder;
        LxAudioFile store(tmp.Dir());
        const int64_t clipBytes = tmp.Child("clip.lxa").GetLength();
        LxAudioClipBase clip(store);
        clip.AppendPageRange(store.GetSilenceRange());
        EXPECT_EQ(store.WriteClip(clip), c.next);
        EXPECT_EQ(recorder.Count(), c.reports);
        store.Flush();
        if (c.next == -1) {
            // Nothing was written: no record without an ID to find it by.
            EXPECT_EQ(tmp.Child("clip.lxa").GetLength(), clipBytes);
            EXPECT_EQ(recorder.Reports()[0].message, "no clip ID left");
            EXPECT_EQ(recorder.Reports()[0].sourceFile, "source/components/audiocore/LxAudioFile");
        } else {
            EXPECT_TRUE(LxAudioClipBase(store, c.next).IsSameAs(clip));
        }
    }
    // A missing ID leaves the clip read into untouched.
    RestoreStoreFiles(tmp.Dir(), saved);
    LxAudioFile store(tmp.Dir());
    AssertRecorder recorder;
    LxAudioClipBase untouched(store);
    untouched.AppendPageRange(store.GetSilenceRange());
    EXPECT_FALSE(store.ReadClip(9, untouched));
    ExpectReportFrom(recorder, "clip ID not found in file", "audiocore/LxAudioFile");
    EXPECT_EQ(untouched.GetPageRanges().size(), 1u);
}

TEST(AudioStore, ReopeningWithoutSilentPagesReservesThemAtTheEnd) {
    TempDir tmp;
    StoreFiles saved;
    {
        // A cleared store that then got six pages of sound: record 144 is not silent.
        LxAudioFile store(tmp.Dir());
        store.Clear();
        for (int i = 0; i < 6; ++i) EXPECT_EQ(AppendPage(store, MakeRamp(100, 1, i + 1), 1), 36 * i);
        store.Flush();
        saved = KeepStoreFiles(tmp.Dir());
    }
    RestoreStoreFiles(tmp.Dir(), saved);
    LxAudioFile store(tmp.Dir());
    EXPECT_EQ(store.GetSilenceRange(), LxPageRange(&store, kUnit, 216, 0, 360, 176400));
    store.Flush();
    EXPECT_EQ(tmp.Child("pcm.lxa").GetLength(), 11 * 36);
    EXPECT_EQ(PageRecord(store, 144).codec, 1);
    EXPECT_EQ(PageRecord(store, 360).codec, 3);
}

TEST(AudioStore, ThumbnailCacheFollowsThePagesItDescribes) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    // A full mono page summarises into 980 pairs, a full stereo page into 490.
    int mono = AppendPage(store, MakePcm(88200, 1, [](int i) { return i % 90 == 5 ? 300 : -2; }), 1);
    int stereo = AppendPage(store, MakeRamp(44100, 2), 2);
    LxPageThumbnail* monoEntry = store.GetPageThumbnail(mono);
    ASSERT_NE(monoEntry, nullptr);
    EXPECT_EQ(monoEntry->NumberOfPoints(), 980);
    EXPECT_EQ(monoEntry->points[0], 0x012CFFFEu);  // max 300 high, min -2 low
    EXPECT_EQ(store.GetPageThumbnail(stereo)->NumberOfPoints(), 490);
    EXPECT_EQ(store.GetPageThumbnail(mono), monoEntry);  // a hit, not a second read
    // A silent page's thumbnail is a full page's worth of zeros.
    EXPECT_EQ(store.GetPageThumbnail(0)->points, std::vector<uint32_t>(980, 0u));

    // Unused entries go on release; one that a clip holds stays.
    ++monoEntry->useCount;
    store.ReleaseUnusedThumbnails();
    EXPECT_EQ(store.GetPageThumbnail(mono), monoEntry);

    // Clearing replaces every page: the first page appended to the empty store is
    // page 0, which must not show the silent page's old entry, and the held entry
    // stays valid for its holder until it lets go (ASan checks the memory).
    store.Clear();
    EXPECT_EQ(AppendPage(store, MakePcm(180, 1, [](int) { return 77; }), 1), 0);
    EXPECT_EQ(store.GetPageThumbnail(0)->points, (std::vector<uint32_t>{0x004D0000u, 0x004D0000u}));
    EXPECT_EQ(monoEntry->NumberOfPoints(), 980);
    --monoEntry->useCount;
    store.ReleaseUnusedThumbnails();
}

TEST(AudioStore, PagesThatCannotBeStoredOrCompressedAreReported) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    store.Flush();
    AssertRecorder recorder;
    // More than a page: refused, nothing written anywhere.
    EXPECT_EQ(AppendPage(store, MakeRamp(88201, 1), 1), -1);
    ExpectReportFrom(recorder, "page longer than 176400 bytes", kPcm);
    EXPECT_EQ(MemberSizes(store), (std::vector<int>{0, 0, 180, 0, 4}));
    recorder.Clear();

    // Three channels: stored raw with a zeroed thumbnail, "Yet to implement!".
    EXPECT_EQ(AppendPage(store, MakeRamp(180, 3), 3), 180);
    ExpectReportFrom(recorder, "Yet to implement!", kPcm);
    EXPECT_EQ(Thumbnail(store, 180, 64), std::vector<int16_t>(4, 0));  // 180 frames: two pairs
    recorder.Clear();
    // The compressor cannot take that page and does not move past it; compressing
    // everything stops there instead of spinning.
    int next = AppendPage(store, MakeRamp(4410, 1), 1);
    EXPECT_EQ(store.CompressAllPages(nullptr), 0);
    ASSERT_GE(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Reports()[0].message, "Not implemented");
    EXPECT_EQ(PageRecord(store, next).codec, 1);
}

TEST(AudioStore, ConcurrentWritersEachGetTheirOwnPagesAndClips) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    constexpr int kThreads = 4, kPerThread = 25;
    const auto frames = [](int t, int i) { return 900 + 90 * ((t + i) % 7); };
    std::vector<std::vector<std::pair<int, int>>> written(kThreads);  // {page, clip ID}
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const int channels = 1 + t % 2;
            for (int i = 0; i < kPerThread; ++i) {
                int page = AppendPage(store, MakeRamp(frames(t, i), channels, t * 1000 + i + 1), channels);
                LxAudioClipBase clip(store);
                clip.AppendPageRange(LxPageRange(&store, kUnit, page, 0, page, frames(t, i) * 2 * channels));
                int id = store.WriteClip(clip);
                // Read something back meanwhile: another thread's pages move the
                // shared streams' positions between every call.
                if (!LxAudioClipBase(store, id).IsSameAs(clip)) ADD_FAILURE() << "clip " << id;
                written[static_cast<size_t>(t)].push_back({page, id});
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    std::set<int> pages, ids;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kPerThread; ++i) {
            auto [page, id] = written[static_cast<size_t>(t)][static_cast<size_t>(i)];
            pages.insert(page);
            ids.insert(id);
            const int channels = 1 + t % 2;
            std::vector<int16_t> out(static_cast<size_t>(frames(t, i) * channels));
            int got = 0;
            store.ReadPageData(PageRecord(store, page), channels, out.data(), frames(t, i) * channels * 2, got);
            ASSERT_EQ(out, MakeRamp(frames(t, i), channels, t * 1000 + i + 1)) << "page " << page;
        }
    }
    EXPECT_EQ(*pages.rbegin(), 180 + 36 * (kThreads * kPerThread - 1));
    EXPECT_EQ(ids.size(), size_t{kThreads * kPerThread});
}
