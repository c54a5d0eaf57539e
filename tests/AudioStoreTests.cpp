// The store's page format and member files, byte by byte: reserved silence,
// page records and thumbnails, reading with channel conversion, damaged records,
// copying pages between stores.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <thread>
#include "AssertRecorder.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPCMDataStream.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

const char* const kPcmSource = "source/components/audiocore/LxPCMDataStream";
const char* const kFileSource = "source/components/audiocore/LxAudioFile";

std::vector<int32_t> Ints(const LxFile& file) {
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    std::vector<int32_t> values;
    int32_t v;
    while (in && in->ReadInt32(v)) values.push_back(v);
    return values;
}

std::vector<uint8_t> Bytes(const LxFile& file) {
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    std::vector<uint8_t> bytes(in ? static_cast<size_t>(in->GetLength()) : 0);
    if (!bytes.empty()) in->Read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

void WriteBytes(const LxFile& file, const std::vector<uint8_t>& bytes) {
    auto out = LxStreamUtil::CreateFileStreamReadWrite(file, kLxStreamWrite, 0, 0);
    ASSERT_NE(out, nullptr);
    out->Write(bytes.data(), static_cast<int>(bytes.size()));
}

std::vector<uint8_t> Le32(std::initializer_list<int64_t> values) {
    std::vector<uint8_t> bytes;
    for (int64_t v : values) {
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i)));
    }
    return bytes;
}

// A store deletes its member files when destroyed; a test that reopens a store
// keeps their bytes and puts them back.
using Members = std::map<std::string, std::vector<uint8_t>>;
Members Snapshot(const TempDir& dir) {
    Members members;
    for (const char* name : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"}) members[name] = Bytes(dir.Child(name));
    return members;
}
void Restore(const TempDir& dir, const Members& members) {
    for (const auto& [name, bytes] : members) WriteBytes(dir.Child(name.c_str()), bytes);
}

int Append(LxAudioFile& store, const std::vector<int16_t>& pcm, int channels) {
    int page = -1;
    store.AppendPage(pcm.data(), static_cast<int>(pcm.size() * 2), channels, 44100, 16, page);
    return page;
}

}  // namespace

TEST(AudioStore, NewStoreHoldsFiveSilentPagesAndReopensAsItWas) {
    TempDir tmp;
    {
        LxAudioFile store(tmp.Dir());
        store.Flush();
        std::vector<int32_t> pcm = Ints(tmp.Child("pcm.lxa"));
        ASSERT_EQ(pcm.size(), 45u);  // 180 bytes
        for (int r = 0; r < 5; ++r) {
            EXPECT_EQ(std::vector<int32_t>(pcm.begin() + 9 * r, pcm.begin() + 9 * r + 9),
                      (std::vector<int32_t>{3, 176400, 0, 0, 0, 0, 1, 44100, 16}))
                << "record " << r;
        }
        EXPECT_EQ(tmp.Child("raw.lxa").GetLength(), 0);
        EXPECT_EQ(tmp.Child("enc.lxa").GetLength(), 0);
        EXPECT_EQ(tmp.Child("clip.lxa").GetLength(), 0);
        EXPECT_EQ(Ints(tmp.Child("map.lxa")), std::vector<int32_t>{0});
        LxPageRange silence = store.GetSilenceRange();
        EXPECT_EQ(silence, LxPageRange(&store, LxAudioVolumeEffect(), 0, 0, 144, 176400));
        EXPECT_EQ(silence.WorthInFrames(), 5 * 88200);
        EXPECT_EQ(Append(store, MakeRamp(100, 1), 1), 180);
        LxAudioClipBase clip(store);
        clip.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 180, 0, 180, 200));
        EXPECT_EQ(store.WriteClip(clip), 1);
        // Closing without destroying keeps the files for a reopen.
        store.Close();
        // The store deletes its member files only when destroyed; keep copies.
        for (const char* name : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"}) {
            auto out = LxStreamUtil::CreateFileStreamReadWrite(tmp.Child((std::string("keep-") + name).c_str()), 2, 0, 0);
            auto bytes = Bytes(tmp.Child(name));
            out->Write(bytes.data(), static_cast<int>(bytes.size()));
        }
    }
    EXPECT_FALSE(tmp.Child("pcm.lxa").Exists());  // members go with the store
    for (const char* name : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"}) {
        tmp.Child((std::string("keep-") + name).c_str()).RenameTo(tmp.Child(name));
    }
    LxAudioFile reopened(tmp.Dir());
    EXPECT_EQ(tmp.Child("pcm.lxa").GetLength(), 216);  // no second set of silent pages
    LxAudioClipBase clip(reopened, 1);
    EXPECT_EQ(clip.WorthInFrames(), 100);
    EXPECT_EQ(reopened.GetSilenceRange().endPage, 144);
}

TEST(AudioStore, PagesStoreDataThumbnailsAndSilence) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    // Three pages after the reserved ones: 180, 216, 252.
    EXPECT_EQ(Append(store, MakePcm(900, 1, [](int) { return 100; }), 1), 180);
    EXPECT_EQ(Append(store, MakePcm(900, 1, [](int) { return -100; }), 1), 216);
    EXPECT_EQ(Append(store, MakePcm(89, 2, [](int i) { return i; }), 2), 252);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 1);
    EXPECT_EQ(record.pcmBytes, 1800);
    EXPECT_EQ(record.dataRange, (LxRange{0, 1800}));
    EXPECT_EQ(record.thumbnailRange, (LxRange{0, 40}));
    // Thumbnail pairs start at 0: all 100 gives {0, 100}; all -100 gives {-100, 0}.
    std::vector<int16_t> thumb(20);
    int got = 0;
    store.ReadPageThumbnail(180, thumb.data(), 40, got);
    EXPECT_EQ(got, 40);
    EXPECT_EQ(thumb[0], 0);
    EXPECT_EQ(thumb[1], 100);
    store.ReadPageThumbnail(216, thumb.data(), 40, got);
    EXPECT_EQ(thumb[0], -100);
    EXPECT_EQ(thumb[1], 0);
    // 89 stereo frames: no full group, an empty thumbnail range at the end of "enc.lxa".
    ASSERT_TRUE(store.ReadPageHeader(252, record));
    EXPECT_EQ(record.thumbnailRange, (LxRange{80, 80}));
    EXPECT_EQ(record.dataRange, (LxRange{3600, 3600 + 356}));

    // An all-zero page stores no data, yet its thumbnail bytes stay in "enc.lxa".
    EXPECT_EQ(Append(store, std::vector<int16_t>(88200, 0), 2), 288);
    ASSERT_TRUE(store.ReadPageHeader(288, record));
    EXPECT_EQ(record.codec, 3);
    EXPECT_EQ(record.pcmBytes, 176400);
    EXPECT_EQ(record.dataRange, (LxRange{0, 0}));
    EXPECT_EQ(record.thumbnailRange, (LxRange{0, 0}));
    store.Flush();
    EXPECT_EQ(tmp.Child("enc.lxa").GetLength(), 80 + 1960);
    EXPECT_EQ(tmp.Child("raw.lxa").GetLength(), 3956);
    // Silent pages read as zeros and report a zero thumbnail of the size asked.
    std::vector<int16_t> zeros(8, 7);
    store.ReadPageThumbnail(288, zeros.data(), 16, got);
    EXPECT_EQ(got, 16);
    EXPECT_EQ(zeros, std::vector<int16_t>(8, 0));

    // Stereo thumbnail: the channels' extremes averaged (truncating).
    EXPECT_EQ(Append(store, MakePcm(90, 2, [](int i) { return i % 2 ? 101 : -300; }), 2), 324);
    store.ReadPageThumbnail(324, thumb.data(), 40, got);
    EXPECT_EQ(got, 4);
    EXPECT_EQ(thumb[0], -150);
    EXPECT_EQ(thumb[1], 50);
}

TEST(AudioStore, ReadsPagesWithChannelConversionAndMarksDamagedOnes) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> mono = MakeRamp(1000, 1);
    std::vector<int16_t> stereo = MakePcm(1000, 2, [](int i) { return i % 2 ? -7 : 1000 + i; });
    int monoPage = Append(store, mono, 1), stereoPage = Append(store, stereo, 2);
    LxPCMData record;
    store.ReadPageHeader(monoPage, record);
    // Mono into a stereo request of 1000 bytes: 250 samples, each doubled.
    std::vector<int16_t> out(2000, 0);
    int got = 0;
    store.ReadPageData(record, 2, out.data(), 1000, got);
    EXPECT_EQ(got, 1000);
    for (int i = 0; i < 250; ++i) {
        ASSERT_EQ(out[static_cast<size_t>(2 * i)], mono[static_cast<size_t>(i)]);
        ASSERT_EQ(out[static_cast<size_t>(2 * i + 1)], mono[static_cast<size_t>(i)]);
    }
    // Stereo as mono: half the bytes, the truncated average of each pair.
    store.ReadPageHeader(stereoPage, record);
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
    EXPECT_EQ(bytes[0], 2);
    EXPECT_EQ(bytes[99], 2);
    EXPECT_EQ(bytes[100], 0xAA);
    ExpectSingleReport(recorder, "Unknown Codec", kPcmSource,
                       SourceLineOf("source/components/audiocore/LxPCMDataStream.cpp", "\"Unknown Codec\""));
    recorder.Clear();
    damaged = record;
    damaged.channels = 3;
    store.ReadPageData(damaged, 2, bytes.data(), 100, got);
    ExpectSingleReport(recorder, "Not supported format!", kPcmSource,
                       SourceLineOf("source/components/audiocore/LxPCMDataStream.cpp", "\"Not supported format!\""));
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
    EXPECT_EQ(record.codec, 0);
    EXPECT_FALSE(store.ReadPageHeader(-36, record));
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST(AudioStore, CopiesPagesInTheirStoredForm) {
    TempDir a, b;
    LxAudioFile source(a.Dir());
    LxAudioFile target(b.Dir());
    std::vector<int16_t> pcm = MakeRamp(900, 2);
    int page = Append(source, pcm, 2);
    int silent = Append(source, std::vector<int16_t>(100, 0), 1);
    EXPECT_EQ(source.CopyPageTo(page, target), 180);
    EXPECT_EQ(source.CopyPageTo(silent, target), 216);
    LxPCMData record;
    ASSERT_TRUE(target.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 1);
    EXPECT_EQ(record.dataRange, (LxRange{0, 3600}));
    EXPECT_EQ(record.thumbnailRange, (LxRange{0, 40}));
    std::vector<int16_t> out(1800);
    int got = 0;
    target.ReadPageData(record, 2, out.data(), 3600, got);
    EXPECT_EQ(out, pcm);
    ASSERT_TRUE(target.ReadPageHeader(216, record));
    EXPECT_EQ(record.codec, 3);
    EXPECT_EQ(record.pcmBytes, 200);
}

TEST(AudioStore, ClipRecordsAndTheClipTable) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    int page = Append(store, MakeRamp(4410, 1), 1);
    LxAudioClipBase clip(store);
    clip.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(0.5f, 100, 2), page, 0, page, 8820));
    EXPECT_EQ(store.WriteClip(clip), 1);
    EXPECT_EQ(store.WriteClip(clip), 2);  // never rewritten in place
    EXPECT_EQ(store.WriteClip(clip), 3);
    store.Flush();
    // map.lxa: count, then {ID, position} ascending; positions ascending from 0.
    std::vector<int32_t> map = Ints(tmp.Child("map.lxa"));
    int recordBytes = static_cast<int>(tmp.Child("clip.lxa").GetLength() / 3);
    EXPECT_EQ(map, (std::vector<int32_t>{3, 1, 0, 2, recordBytes, 3, 2 * recordBytes}));
    EXPECT_EQ(tmp.Child("map.lxa").GetLength(), 28);
    // The clip record: count, four page fields, one volume effect as three doubles.
    EXPECT_EQ(recordBytes, 4 + 16 + 4 + 4 + 24);

    LxAudioClipBase loaded(store, 2);
    EXPECT_TRUE(loaded.IsSameAs(clip));
    AssertRecorder recorder;
    LxAudioClipBase untouched(store);
    untouched.AppendPageRange(clip.GetPageRanges()[0]);
    EXPECT_FALSE(store.ReadClip(9, untouched));
    ExpectSingleReport(recorder, "clip ID not found in file", kFileSource,
                       SourceLineOf("source/components/audiocore/LxAudioFile.cpp", "\"clip ID not found in file\""));
    EXPECT_EQ(untouched.GetPageRanges().size(), 1u);
    std::list<int> ids;
    store.GetClipIDs(ids);
    EXPECT_EQ(ids, (std::list<int>{1, 2, 3}));
}

TEST(AudioStore, ClipIDsFollowTheLargestAndRunOutCleanly) {
    TempDir tmp;
    Members saved;
    {
        LxAudioFile store(tmp.Dir());
        LxAudioClipBase clip(store);
        clip.AppendPageRange(store.GetSilenceRange());
        for (int id = 1; id <= 3; ++id) EXPECT_EQ(store.WriteClip(clip), id);
        store.Flush();
        saved = Snapshot(tmp);
    }
    // Tables written by hand (every entry points at the first record): {1, 7}
    // continues at 8 (gaps are never reused), and a table that holds the largest
    // int has no ID left to give.
    struct Case {
        std::vector<uint8_t> map;
        int next;
        size_t reports;
    };
    const std::vector<Case> cases = {
        {Le32({2, 1, 0, 7, 0}), 8, 0},
        {Le32({3, 1, 0, 2, 0, 5, 0}), 6, 0},
        {Le32({1, INT_MAX, 0}), -1, 1},
        // IDs below 1 name no clip: left out, reported once, and the next ID is 1.
        {Le32({2, -1, 0, 0, 0}), 1, 1},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        Members members = saved;
        members["map.lxa"] = cases[i].map;
        Restore(tmp, members);
        AssertRecorder recorder;
        LxAudioFile store(tmp.Dir());
        int clipBytes = static_cast<int>(tmp.Child("clip.lxa").GetLength());
        LxAudioClipBase clip(store);
        clip.AppendPageRange(store.GetSilenceRange());
        EXPECT_EQ(store.WriteClip(clip), cases[i].next) << i;
        EXPECT_EQ(recorder.Count(), cases[i].reports) << i;
        store.Flush();
        if (cases[i].next == -1) {
            // Nothing was written: no record without an ID to find it by.
            EXPECT_EQ(tmp.Child("clip.lxa").GetLength(), clipBytes);
            EXPECT_EQ(recorder.Reports()[0].message, "no clip ID left");
            EXPECT_EQ(recorder.Reports()[0].sourceFile, kFileSource);
        } else {
            LxAudioClipBase loaded(store, cases[i].next);
            EXPECT_TRUE(loaded.IsSameAs(clip)) << i;
        }
    }
}

TEST(AudioStore, ReopeningWithoutSilentPagesReservesThemAtTheEnd) {
    TempDir tmp;
    Members saved;
    {
        LxAudioFile store(tmp.Dir());
        // A cleared store that then got six pages of sound: record 144 is not silent.
        store.Clear();
        for (int i = 0; i < 6; ++i) EXPECT_EQ(Append(store, MakeRamp(100, 1, i + 1), 1), 36 * i);
        store.Flush();
        saved = Snapshot(tmp);
    }
    Restore(tmp, saved);
    LxAudioFile store(tmp.Dir());
    EXPECT_EQ(store.GetSilenceRange(), LxPageRange(&store, LxAudioVolumeEffect(), 216, 0, 360, 176400));
    store.Flush();
    EXPECT_EQ(tmp.Child("pcm.lxa").GetLength(), 11 * 36);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(144, record));
    EXPECT_EQ(record.codec, 1);
    ASSERT_TRUE(store.ReadPageHeader(360, record));
    EXPECT_EQ(record.codec, 3);
    EXPECT_EQ(record.pcmBytes, 176400);
    EXPECT_EQ(record.channels, 1);
}

TEST(AudioStore, ThumbnailCacheFollowsThePagesItDescribes) {
    TempDir tmp, other;
    LxAudioFile store(tmp.Dir());
    // A full mono page summarises into 980 pairs, a full stereo page into 490.
    int mono = Append(store, MakePcm(88200, 1, [](int i) { return i % 90 == 5 ? 300 : -2; }), 1);
    int stereo = Append(store, MakeRamp(44100, 2), 2);
    LxPageThumbnail* monoEntry = store.GetPageThumbnail(mono);
    ASSERT_NE(monoEntry, nullptr);
    EXPECT_EQ(monoEntry->NumberOfPoints(), 980);
    EXPECT_EQ(monoEntry->points[0], 0x012CFFFEu);  // max 300 high, min -2 low
    EXPECT_EQ(monoEntry->channels, 1);
    EXPECT_EQ(monoEntry->sampleRate, 44100);
    EXPECT_EQ(monoEntry->bitsPerSample, 16);
    EXPECT_EQ(store.GetPageThumbnail(stereo)->NumberOfPoints(), 490);
    EXPECT_EQ(store.GetPageThumbnail(mono), monoEntry);  // a hit, not a second read
    // A silent page's thumbnail is a full page's worth of zeros.
    LxPageThumbnail* silent = store.GetPageThumbnail(0);
    EXPECT_EQ(silent->NumberOfPoints(), 980);
    EXPECT_EQ(std::count(silent->points.begin(), silent->points.end(), 0u), 980);

    // Unused entries go on release; one that a clip holds stays.
    ++monoEntry->useCount;
    store.ReleaseUnusedThumbnails();
    EXPECT_EQ(store.GetPageThumbnail(mono), monoEntry);

    // Loading another store replaces every page: page IDs now name other audio,
    // and the held entry stays valid for its holder until it lets go.
    LxAudioFile source(other.Dir());
    EXPECT_EQ(Append(source, MakePcm(900, 1, [](int) { return -1000; }), 1), mono);
    LxMemoryStream saved;
    ASSERT_TRUE(source.WriteTo(saved));
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(store.ReadFrom(saved));
    EXPECT_EQ(monoEntry->NumberOfPoints(), 980);  // still the holder's (ASan checks the memory)
    LxPageThumbnail* reloaded = store.GetPageThumbnail(mono);
    ASSERT_NE(reloaded, monoEntry);
    EXPECT_EQ(reloaded->NumberOfPoints(), 10);
    EXPECT_EQ(reloaded->points[0], 0x0000FC18u);
    ++reloaded->useCount;
    --monoEntry->useCount;
    store.ReleaseUnusedThumbnails();

    // Clearing does the same: the first page appended to the empty store is page
    // 0, which must not show the silent page's old entry.
    EXPECT_EQ(store.GetPageThumbnail(0)->points[0], 0u);
    store.Clear();
    EXPECT_EQ(Append(store, MakePcm(180, 1, [](int) { return 77; }), 1), 0);
    EXPECT_EQ(store.GetPageThumbnail(0)->points, (std::vector<uint32_t>{0x004D0000u, 0x004D0000u}));
    EXPECT_EQ(reloaded->NumberOfPoints(), 10);
    --reloaded->useCount;
    store.ReleaseUnusedThumbnails();
}

TEST(AudioStore, PagesThatCannotBeStoredOrCompressedAreReported) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    store.Flush();
    AssertRecorder recorder;
    // More than a page: refused, nothing written anywhere.
    std::vector<int16_t> big = MakeRamp(88201, 1);
    int page = 0;
    store.AppendPage(big.data(), 176402, 1, 44100, 16, page);
    EXPECT_EQ(page, -1);
    ExpectSingleReport(recorder, "page longer than 176400 bytes", kPcmSource,
                       SourceLineOf("source/components/audiocore/LxPCMDataStream.cpp", "\"page longer than 176400 bytes\""));
    int sizes[5];
    store.GetMemberSizes(sizes);
    EXPECT_EQ(std::vector<int>(sizes, sizes + 5), (std::vector<int>{0, 0, 180, 0, 4}));
    recorder.Clear();

    // Three channels: stored raw with a zeroed thumbnail, "Yet to implement!".
    std::vector<int16_t> three = MakeRamp(180, 3);
    page = Append(store, three, 3);
    EXPECT_EQ(page, 180);
    ExpectSingleReport(recorder, "Yet to implement!", kPcmSource,
                       SourceLineOf("source/components/audiocore/LxPCMDataStream.cpp", "\"Yet to implement!\""));
    std::vector<uint8_t> thumb(64, 0xAA);
    int got = 0;
    store.ReadPageThumbnail(page, thumb.data(), 64, got);
    EXPECT_EQ(got, 8);  // 180 frames: two pairs
    EXPECT_EQ(std::count(thumb.begin(), thumb.begin() + 8, 0), 8);
    recorder.Clear();
    // The compressor cannot take that page and does not move past it; compressing
    // everything stops there instead of spinning.
    int next = Append(store, MakeRamp(4410, 1), 1);
    EXPECT_EQ(store.CompressAllPages(nullptr), 0);
    ASSERT_GE(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Reports()[0].message, "Not implemented");
    LxPCMData record;
    store.ReadPageHeader(next, record);
    EXPECT_EQ(record.codec, 1);
}

TEST(AudioStore, ConcurrentWritersEachGetTheirOwnPagesAndClips) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    constexpr int kThreads = 4, kPerThread = 25;
    std::vector<std::vector<std::pair<int, int>>> written(kThreads);  // {page, clip ID}
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                int seed = t * 1000 + i + 1;
                int frames = 900 + 90 * ((t + i) % 7);
                int page = Append(store, MakeRamp(frames, 1 + t % 2, seed), 1 + t % 2);
                LxAudioClipBase clip(store);
                clip.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), page, 0, page, frames * 2 * (1 + t % 2)));
                int id = store.WriteClip(clip);
                // Read something back meanwhile: another thread's pages move the
                // shared streams' positions between every call.
                LxAudioClipBase again(store, id);
                if (!again.IsSameAs(clip)) ADD_FAILURE() << "clip " << id;
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
            int channels = 1 + t % 2, frames = 900 + 90 * ((t + i) % 7);
            LxPCMData record;
            ASSERT_TRUE(store.ReadPageHeader(page, record));
            std::vector<int16_t> out(static_cast<size_t>(frames * channels));
            int got = 0;
            store.ReadPageData(record, channels, out.data(), frames * channels * 2, got);
            ASSERT_EQ(out, MakeRamp(frames, channels, t * 1000 + i + 1)) << "page " << page;
            LxAudioClipBase clip(store, id);
            ASSERT_EQ(clip.GetPageRanges().size(), 1u);
            EXPECT_EQ(clip.GetPageRanges()[0].startPage, page);
        }
    }
    EXPECT_EQ(pages.size(), size_t{kThreads * kPerThread});
    EXPECT_EQ(*pages.begin(), 180);
    EXPECT_EQ(*pages.rbegin(), 180 + 36 * (kThreads * kPerThread - 1));
    EXPECT_EQ(ids.size(), size_t{kThreads * kPerThread});
    EXPECT_EQ(*ids.rbegin(), kThreads * kPerThread);
}

TEST(AudioStore, WritesTheBytesOfTheFormatDocumentsExample) {
    // docs/store-format.md, "A new store, byte by byte".
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    int page = Append(store, MakeRamp(100, 1), 1);
    LxAudioClipBase clip(store);
    clip.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), page, 0, page, 200));
    ASSERT_EQ(store.WriteClip(clip), 1);
    store.Flush();
    const std::vector<uint8_t> silent = Le32({3, 176400, 0, 0, 0, 0, 1, 44100, 16});
    const std::vector<uint8_t> sound = Le32({1, 200, 0, 200, 0, 4, 1, 44100, 16});
    std::vector<uint8_t> pcm = Bytes(tmp.Child("pcm.lxa"));
    ASSERT_EQ(pcm.size(), 216u);
    for (int r = 0; r < 5; ++r) EXPECT_EQ(std::vector<uint8_t>(pcm.begin() + 36 * r, pcm.begin() + 36 * r + 36), silent);
    EXPECT_EQ(std::vector<uint8_t>(pcm.begin() + 180, pcm.end()), sound);
    EXPECT_EQ(tmp.Child("raw.lxa").GetLength(), 200);
    EXPECT_EQ(tmp.Child("enc.lxa").GetLength(), 4);
    std::vector<uint8_t> record = Le32({1, 180, 0, 180, 200, 1, 1});
    for (int i = 0; i < 3; ++i) {
        const std::vector<uint8_t> value = i == 1 ? std::vector<uint8_t>(8, 0)
                                                  : std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0xF0, 0x3F};
        record.insert(record.end(), value.begin(), value.end());
    }
    EXPECT_EQ(Bytes(tmp.Child("clip.lxa")), record);
    EXPECT_EQ(Bytes(tmp.Child("map.lxa")), Le32({1, 1, 0}));
}
