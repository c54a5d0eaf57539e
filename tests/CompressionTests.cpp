// Background compression of pages to Vorbis: which pages it takes, what the
// store looks like afterwards, and that clips play the same length after it.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include "AssertRecorder.h"
#include "ProgressRecorder.h"
#include "StoreAccess.h"
#include "StoreHelpers.h"
#include "TempDir.h"
#include "VoiceSignal.h"

namespace {

int Codec(LxAudioFile& store, int page) { return PageRecord(store, page).codec; }

}  // namespace

TEST(Compression, CompressesRawPagesOneByOneAndSkipsTheRest) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> stereo = VoicePcm(2 * 44100 + 4410, 2), mono = VoicePcm(29970, 1);
    int a = StoreClip(store, stereo, 2);                              // pages 180, 216 full, 252 partial
    EXPECT_EQ(AppendPage(store, std::vector<int16_t>(1000, 0), 1), 288);  // silent
    int b = StoreClip(store, mono, 1);                                // 324
    // Five reserved silent pages first: each call skips one; then 180, 216,
    // 252, the silent page, 324, and nothing is left.
    for (bool compressed : {false, false, false, false, false, true, true, true, false, true, false, false, false})
        EXPECT_EQ(store.CompressOnePage(), compressed);
    for (int page : {180, 216, 252, 324}) EXPECT_EQ(Codec(store, page), 2) << page;
    EXPECT_EQ(Codec(store, 288), 3);
    EXPECT_EQ(PageRecord(store, 252).pcmBytes, 4410 * 4);

    // Same lengths, and close to the original audio.
    std::vector<int16_t> decodedA = ClipAudio(store, a, 2), decodedB = ClipAudio(store, b, 1);
    ASSERT_EQ(decodedA.size(), stereo.size());
    ASSERT_EQ(decodedB.size(), mono.size());
    EXPECT_GT(SnrDb(stereo, decodedA), 30.0);
    EXPECT_GT(SnrDb(mono, decodedB), 25.0);
}

TEST(Compression, RunsBesideReadersWithoutDisturbingThem) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> pcm = VoicePcm(6 * 44100, 2);
    int id = StoreClip(store, pcm, 2);
    std::atomic<bool> done{false};
    std::thread compressor([&] {
        for (int i = 0; i < 40; ++i) store.CompressOnePage();
        done = true;
    });
    for (int reads = 0; !done || reads < 2; ++reads) EXPECT_EQ(ClipAudio(store, id, 2).size(), pcm.size());
    compressor.join();
}

TEST(Compression, CompressingOnSeveralThreadsWritesTheSameBytes) {
    TempDir one, two;
    LxAudioFile serial(one.Dir()), parallel(two.Dir());
    for (LxAudioFile* store : {&serial, &parallel}) {
        StoreClip(*store, VoicePcm(7 * 44100 + 900, 2), 2);  // eight stereo pages
        AppendPage(*store, std::vector<int16_t>(1000, 0), 1);  // silent
        StoreClip(*store, VoicePcm(3 * 88200 + 450, 1), 1);   // four mono pages
        AppendPage(*store, MakeRamp(4410, 2), 2);
        AppendPage(*store, MakeRamp(180, 3), 3);             // no codec for three channels
        AppendPage(*store, MakeRamp(9000, 1), 1);             // left raw behind it
    }
    AssertRecorder recorder;
    EXPECT_EQ(serial.CompressAllPages(nullptr), 13);
    const std::vector<AssertReport> serialReports = recorder.Reports();
    recorder.Clear();
    ProgressRecorder progress;
    EXPECT_EQ(parallel.CompressAllPagesInParallel(3, &progress), 13);
    const std::vector<AssertReport> parallelReports = recorder.Reports();
    ASSERT_EQ(serialReports.size(), 1u);
    ASSERT_EQ(parallelReports.size(), 1u);
    EXPECT_EQ(parallelReports[0].message, "Not implemented");
    EXPECT_EQ(parallelReports[0].line, serialReports[0].line);
    EXPECT_EQ(progress.task, "kLxCompressingAudio");
    EXPECT_EQ(progress.total, 5 + 8 + 1 + 4 + 3);
    EXPECT_EQ(progress.last, 5 + 8 + 1 + 4 + 1);  // stopped at the three-channel page
    serial.Flush();
    parallel.Flush();
    for (const char* name : {"enc.lxa", "pcm.lxa"}) EXPECT_EQ(FileBytes(one.Child(name)), FileBytes(two.Child(name))) << name;
    EXPECT_EQ(Codec(parallel, 180 + 36 * 15), kLxPageCodecRaw);
    EXPECT_EQ(ClipAudio(parallel, 1, 2), ClipAudio(serial, 1, 2));
}

TEST(Compression, ClipsOfCompressedPagesReadAsEveryPageDecodedAlone) {
    // Reading in order decodes every other page ahead on another thread. What
    // a clip reads must be each page decoded on its own, damaged pages report
    // once, on the reader's thread, and a reloaded store never gets a page
    // decoded from what it held before.
    TempDir tmp;
    StoreFiles files;
    LxPCMData damaged;
    {
        LxAudioFile store(tmp.Dir());
        StoreClip(store, VoicePcm(5 * 44100 + 700, 2), 2);  // pages 180 to 360
        StoreClip(store, VoicePcm(3 * 88200, 1), 1);        // 396 to 468
        EXPECT_EQ(store.CompressAllPages(nullptr), 9);
        store.Flush();
        files = KeepStoreFiles(tmp.Dir());
        damaged = PageRecord(store, 216);  // one the other thread decodes
    }
    for (int at = damaged.dataRange.start + 40; at < damaged.dataRange.end - 40; at += 7)
        files["enc.lxa"][static_cast<size_t>(at)] ^= 0x5A;
    RestoreStoreFiles(tmp.Dir(), files);

    auto pageAlone = [](LxAudioFile& store, int page, std::vector<int16_t>& audio) {
        LxPCMData record = PageRecord(store, page);
        std::vector<int16_t> pcm(kLxMaxPageBytes / 2);
        int got = 0;
        store.ReadPageData(record, record.channels, pcm.data(), kLxMaxPageBytes, got);
        audio.insert(audio.end(), pcm.begin(), pcm.begin() + got / 2);
    };
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> stereo, mono;
    AssertRecorder alone;
    for (int page = 180; page <= 360; page += 36) pageAlone(store, page, stereo);
    for (int page = 396; page <= 468; page += 36) pageAlone(store, page, mono);
    const std::vector<AssertReport> expected = alone.Reports();
    ASSERT_FALSE(expected.empty());
    alone.Clear();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(ClipAudio(store, 1, 2), stereo);
        EXPECT_EQ(ClipAudio(store, 2, 1), mono);
    }
    const std::vector<AssertReport> reports = alone.Reports();
    ASSERT_EQ(reports.size(), 2 * expected.size());
    for (size_t i = 0; i < reports.size(); ++i) {
        EXPECT_EQ(reports[i].message, expected[i % expected.size()].message);
        EXPECT_EQ(reports[i].line, expected[i % expected.size()].line);
    }

    // A read hands the next page to the other thread; the store then takes
    // other contents, whose page of that ID must be the one read.
    LxPCMData record;
    std::vector<unsigned char> page(kLxMaxPageBytes);
    int got = 0;
    ASSERT_TRUE(store.ReadPage(216, record, page.data(), kLxMaxPageBytes, got));
    TempDir other;
    std::vector<int16_t> otherAudio;
    {
        LxAudioFile source(other.Dir());
        std::vector<int16_t> pcm = VoicePcm(3 * 44100, 2);
        for (int16_t& s : pcm) s = static_cast<int16_t>(-s / 2);
        StoreClip(source, pcm, 2);  // 180 to 252
        source.CompressAllPages(nullptr);
        pageAlone(source, 252, otherAudio);
        auto saved = LxStreamUtil::CreateMemoryStream();
        ASSERT_TRUE(source.WriteTo(*saved));
        saved->Seek(0, kLxSeekBegin);
        ASSERT_TRUE(store.ReadFrom(*saved));
    }
    ASSERT_TRUE(store.ReadPage(252, record, page.data(), kLxMaxPageBytes, got));
    ASSERT_EQ(got, 176400);
    EXPECT_EQ(std::memcmp(page.data(), otherAudio.data(), 176400), 0);
}
