// Background compression of pages to Vorbis: which pages it takes, what the
// store looks like afterwards, and that clips play the same length after it.
#include <gtest/gtest.h>

#include <atomic>
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
