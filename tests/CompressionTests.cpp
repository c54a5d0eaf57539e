// Background compression of pages to Vorbis: which pages it takes, what the
// store looks like afterwards, and that clips play the same length after it.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "AssertRecorder.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

// Narration-like: a gliding voice with harmonics under a syllable envelope.
std::vector<int16_t> Voice(int frames, int channels) {
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    double phase = 0;
    for (int i = 0; i < frames; ++i) {
        double t = i / 44100.0;
        double f0 = 190 + 30 * std::sin(2 * M_PI * 0.7 * t);
        phase += 2 * M_PI * f0 / 44100.0;
        double envelope = 0.5 + 0.5 * std::sin(2 * M_PI * 3.0 * t);
        double v = 0;
        for (int h = 1; h <= 12; ++h) v += std::sin(h * phase) / (h * h);
        for (int c = 0; c < channels; ++c) {
            pcm[static_cast<size_t>(i * channels + c)] = static_cast<int16_t>(9000 * envelope * v * (c ? 0.8 : 1.0));
        }
    }
    return pcm;
}

double SnrDb(const std::vector<int16_t>& reference, const std::vector<int16_t>& test) {
    double signal = 0, noise = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        signal += double(reference[i]) * reference[i];
        double d = double(reference[i]) - test[i];
        noise += d * d;
    }
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

int StoreClip(LxAudioFile& store, const std::vector<int16_t>& pcm, int channels) {
    LxAudioClip clip(store, -1, LX_AUDIO_CLIP_SOURCE_RECORDING);
    clip.AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), static_cast<int>(pcm.size() * 2), channels,
                       44100, 16, 1.0f);
    return clip.FinishAppendingPCMData(channels, 44100, 16, 1.0f);
}

}  // namespace

TEST(Compression, CompressesRawPagesOneByOneAndSkipsTheRest) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> stereo = Voice(2 * 44100 + 4410, 2);  // pages 180, 216 full, 252 partial
    int a = StoreClip(store, stereo, 2);
    int silent = -1;
    store.AppendPage(std::vector<int16_t>(1000, 0).data(), 2000, 1, 44100, 16, silent);  // 288, codec 3
    std::vector<int16_t> mono = Voice(29970, 1);
    int b = StoreClip(store, mono, 1);  // 324
    // Five reserved silent pages first: each call skips one.
    for (int i = 0; i < 5; ++i) EXPECT_FALSE(store.CompressOnePage()) << i;
    EXPECT_TRUE(store.CompressOnePage());
    EXPECT_TRUE(store.CompressOnePage());
    EXPECT_TRUE(store.CompressOnePage());
    EXPECT_FALSE(store.CompressOnePage());  // the silent page
    EXPECT_TRUE(store.CompressOnePage());
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(store.CompressOnePage());  // nothing left
    LxPCMData record;
    for (int page : {180, 216, 252, 324}) {
        ASSERT_TRUE(store.ReadPageHeader(page, record));
        EXPECT_EQ(record.codec, 2) << page;
    }
    store.ReadPageHeader(252, record);
    EXPECT_EQ(record.pcmBytes, 4410 * 4);
    store.ReadPageHeader(288, record);
    EXPECT_EQ(record.codec, 3);

    // Same lengths, and close to the original audio.
    LxAudioClip clipA(store, a), clipB(store, b);
    std::vector<int16_t> decodedA = ReadAll(clipA, 2), decodedB = ReadAll(clipB, 1);
    ASSERT_EQ(decodedA.size(), stereo.size());
    ASSERT_EQ(decodedB.size(), mono.size());
    EXPECT_GT(SnrDb(stereo, decodedA), 30.0);
    EXPECT_GT(SnrDb(mono, decodedB), 25.0);

    // With every page visited, a save leaves "raw.lxa" out.
    LxMemoryStream saved;
    ASSERT_TRUE(store.WriteTo(saved));
    const auto& bytes = saved.GetBytes();
    EXPECT_EQ(bytes[0] | bytes[1] | bytes[2] | bytes[3], 0);
    int sizes[5];
    store.GetMemberSizes(sizes);
    EXPECT_EQ(sizes[0], 0);
    // ... and the reloaded store still plays.
    TempDir other;
    LxAudioFile reloaded(other.Dir());
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(reloaded.ReadFrom(saved));
    LxAudioClip again(reloaded, a);
    EXPECT_EQ(ReadAll(again, 2), decodedA);
}

TEST(Compression, CompressedPagesStayCompressedWhenCopiedOrCompacted) {
    TempDir tmp, other;
    LxAudioFile store(tmp.Dir());
    int a = StoreClip(store, Voice(44100, 2), 2);
    int b = StoreClip(store, Voice(44100, 2), 2);
    for (int i = 0; i < 10; ++i) store.CompressOnePage();
    LxAudioClip clipB(store, b);
    std::vector<int16_t> before = ReadAll(clipB, 2);
    std::list<int> live = {b};
    ASSERT_TRUE(store.Compact(live, nullptr));
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 2);
    LxAudioClip moved(store, live.front());
    EXPECT_EQ(ReadAll(moved, 2), before);

    LxAudioFile target(other.Dir());
    std::map<int, int> ids;
    target.AppendAudioFileFrom(store, ids);
    ASSERT_TRUE(target.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 2);
    LxAudioClip copied(target, ids[live.front()]);
    EXPECT_EQ(ReadAll(copied, 2), before);
    (void)a;
}

TEST(Compression, RunsBesideReadersWithoutDisturbingThem) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> pcm = Voice(6 * 44100, 2);
    int id = StoreClip(store, pcm, 2);
    std::atomic<bool> done{false};
    std::thread compressor([&] {
        for (int i = 0; i < 40; ++i) store.CompressOnePage();
        done = true;
    });
    int reads = 0;
    while (!done || reads < 2) {
        LxAudioClip clip(store, id);
        EXPECT_EQ(ReadAll(clip, 2).size(), pcm.size());
        ++reads;
    }
    compressor.join();
}

namespace {

class CountingProgress : public ILxGeneralProgressCallBack {
public:
    int total = -1, last = -1, ends = 0;
    void BeginTask(const LxString& key, int n, int) override {
        EXPECT_EQ(key, LxString("kLxCompressingAudio"));
        total = n;
    }
    void BeginNextTask(const LxString&, int) override {}
    void ReportProgress(int done) override { last = done; }
    void EndTask() override { ++ends; }
};

std::vector<uint8_t> FileBytes(const LxFile& file) {
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    std::vector<uint8_t> bytes(in ? static_cast<size_t>(in->GetLength()) : 0);
    if (!bytes.empty()) in->Read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

}  // namespace

TEST(Compression, CompressingEverythingMatchesPageByPageAndSurvivesBothSavedForms) {
    TempDir one, two, savedDir, reloadDir;
    LxAudioFile byPage(one.Dir()), atOnce(two.Dir());
    std::vector<int16_t> stereo = Voice(3 * 44100 + 900, 2), mono = Voice(44100, 1);
    for (LxAudioFile* store : {&byPage, &atOnce}) {
        StoreClip(*store, stereo, 2);
        StoreClip(*store, mono, 1);
    }
    EXPECT_TRUE(atOnce.HasPagesToCompress());
    while (byPage.HasPagesToCompress()) byPage.CompressOnePage();
    CountingProgress progress;
    EXPECT_EQ(atOnce.CompressAllPages(&progress), 5);
    EXPECT_EQ(progress.total, 10);
    EXPECT_EQ(progress.last, 10);
    EXPECT_EQ(progress.ends, 1);
    EXPECT_FALSE(atOnce.HasPagesToCompress());
    byPage.Flush();
    atOnce.Flush();
    for (const char* name : {"enc.lxa", "pcm.lxa"}) EXPECT_EQ(FileBytes(one.Child(name)), FileBytes(two.Child(name)));

    // Saved into a directory and reopened: same clips, same decoded samples, no raw data.
    LxAudioClip before(atOnce, 1);
    std::vector<int16_t> decoded = ReadAll(before, 2);
    ASSERT_TRUE(atOnce.WriteTo(savedDir.Dir(), false, nullptr));
    EXPECT_FALSE(savedDir.Child("raw.lxa1").Exists());
    EXPECT_TRUE(savedDir.Child("enc.lxa1").Exists());
    LxAudioFile reloaded(reloadDir.Dir());
    ASSERT_TRUE(reloaded.ReadFrom(savedDir.Dir()));
    LxAudioClip after(reloaded, 1);
    EXPECT_EQ(ReadAll(after, 2), decoded);
    EXPECT_FALSE(reloaded.HasPagesToCompress());
}

TEST(Compression, DamagedCompressedDataDecodesWhatItCan) {
    TempDir tmp;
    std::vector<int16_t> pcm = Voice(44100, 2);
    int id = -1;
    {
        LxAudioFile store(tmp.Dir());
        id = StoreClip(store, pcm, 2);
        store.CompressAllPages(nullptr);
        store.Flush();
        store.Close();
        // Keep the files: the store deletes them when destroyed.
        for (const char* name : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"}) {
            std::vector<uint8_t> bytes = FileBytes(tmp.Child(name));
            auto out = LxStreamUtil::CreateFileStreamReadWrite(tmp.Child((std::string(name) + ".keep").c_str()), 2, 0, 0);
            out->Write(bytes.data(), static_cast<int>(bytes.size()));
        }
    }
    for (const char* name : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"}) {
        tmp.Child((std::string(name) + ".keep").c_str()).RenameTo(tmp.Child(name));
    }
    // Scramble the middle of the page's packets.
    {
        auto enc = LxStreamUtil::CreateFileStreamReadWrite(tmp.Child("enc.lxa"), 3, 0, 0);
        int64_t length = enc->GetLength();
        std::vector<uint8_t> noise(static_cast<size_t>(length / 3), 0xA5);
        enc->Seek(length / 2, kLxSeekBegin);
        enc->Write(noise.data(), static_cast<int>(noise.size()));
    }
    AssertRecorder recorder;
    LxAudioFile store(tmp.Dir());
    LxAudioClip clip(store, id);
    std::vector<int16_t> got = ReadAll(clip, 2);
    EXPECT_LE(got.size(), pcm.size());
    EXPECT_GE(recorder.Count(), 1u);
    for (const AssertReport& report : recorder.Reports()) {
        EXPECT_EQ(report.sourceFile, "source/components/audiocore/LxCodecVorbis");
    }
}
