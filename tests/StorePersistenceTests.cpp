// Saving and loading a store: into one stream and into a directory of chunk
// files (full and incremental), and what damaged saved forms do.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxPublic/LxZipUpdateInfo.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

const char* const kMembers[5] = {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"};

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

// Grows "raw.lxa" by exactly bytes (non-silent pages of at most a page each).
void GrowRaw(LxAudioFile& store, int bytes) {
    while (bytes > 0) {
        int n = std::min(bytes, 176400);
        std::vector<int16_t> pcm = MakePcm(n / 2 + 1, 1, [](int i) { return i % 100 + 1; });
        int page = -1;
        store.AppendPage(pcm.data(), n, 1, 44100, 16, page);
        bytes -= n;
    }
}

int StoreClip(LxAudioFile& store, int frames, int seed) {
    LxAudioClip clip(store, -1, LX_AUDIO_CLIP_SOURCE_RECORDING);
    std::vector<int16_t> pcm = MakeRamp(frames, 2, seed);
    clip.AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), frames * 4, 2, 44100, 16, 1.0f);
    return clip.FinishAppendingPCMData(2, 44100, 16, 1.0f);
}

std::vector<std::string> Names(const std::vector<LxString>& names) {
    std::vector<std::string> out;
    for (const LxString& n : names) out.push_back(n.str());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

TEST(StorePersistence, OneStreamHoldsFiveLengthPrefixedMembers) {
    TempDir a, b;
    LxMemoryStream saved;
    std::vector<std::vector<uint8_t>> original;
    {
        LxAudioFile store(a.Dir());
        StoreClip(store, 50000, 1);
        StoreClip(store, 69975, 2);
        ASSERT_TRUE(store.WriteTo(saved));
        store.Flush();
        for (const char* name : kMembers) original.push_back(Bytes(a.Child(name)));
    }
    // Five times: 32-bit length, that many bytes.
    const std::vector<uint8_t>& all = saved.GetBytes();
    size_t position = 0;
    for (int i = 0; i < 5; ++i) {
        ASSERT_LE(position + 4, all.size());
        uint32_t length = all[position] | all[position + 1] << 8 | all[position + 2] << 16 | uint32_t(all[position + 3]) << 24;
        EXPECT_EQ(length, original[static_cast<size_t>(i)].size()) << kMembers[i];
        EXPECT_TRUE(std::equal(original[static_cast<size_t>(i)].begin(), original[static_cast<size_t>(i)].end(),
                               all.begin() + static_cast<long>(position) + 4));
        position += 4 + length;
    }
    EXPECT_EQ(position, all.size());

    LxAudioFile reloaded(b.Dir());
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(reloaded.ReadFrom(saved));
    reloaded.Flush();
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Bytes(b.Child(kMembers[i])), original[static_cast<size_t>(i)]) << kMembers[i];
    LxAudioClip clip(reloaded, 2);
    EXPECT_EQ(clip.WorthInFrames(), 69975);
    EXPECT_EQ(ReadAll(clip, 2), MakeRamp(69975, 2, 2));
}

TEST(StorePersistence, DamagedStreamsLeaveTheStoreAsItWas) {
    TempDir a, b;
    LxMemoryStream saved;
    {
        LxAudioFile store(a.Dir());
        StoreClip(store, 1000, 1);
        store.WriteTo(saved);
    }
    LxAudioFile target(b.Dir());
    int mine = StoreClip(target, 1980, 3);
    target.Flush();
    std::vector<uint8_t> before = Bytes(b.Child("pcm.lxa"));
    const std::vector<uint8_t>& good = saved.GetBytes();

    std::vector<std::vector<uint8_t>> damaged;
    damaged.emplace_back(good.begin(), good.end() - 1);          // ends early
    damaged.emplace_back(good.begin(), good.begin() + 2);        // not even a length
    damaged.emplace_back();                                       // nothing at all
    std::vector<uint8_t> huge = good;
    huge[0] = 0xFF, huge[1] = 0xFF, huge[2] = 0xFF, huge[3] = 0x7F;  // a length beyond the end
    damaged.push_back(huge);
    std::vector<uint8_t> negative = good;
    negative[3] = 0x80;
    damaged.push_back(negative);
    for (size_t i = 0; i < damaged.size(); ++i) {
        AssertRecorder recorder;
        LxMemoryStream in(damaged[i]);
        EXPECT_FALSE(target.ReadFrom(in)) << i;
        EXPECT_EQ(recorder.Count(), 1u) << i;
        EXPECT_EQ(recorder.Reports()[0].sourceFile, "source/components/audiocore/LxAudioFile");
    }
    target.Flush();
    EXPECT_EQ(Bytes(b.Child("pcm.lxa")), before);
    LxAudioClip clip(target, mine);
    EXPECT_EQ(clip.WorthInFrames(), 1980);
}

TEST(StorePersistence, ChunkFilesSplitAtOneMebibyte) {
    TempDir work, save;
    LxAudioFile store(work.Dir());
    GrowRaw(store, 1048576);
    LxZipUpdateInfo info;
    ASSERT_TRUE(store.WriteTo(save.Dir(), false, &info));
    EXPECT_EQ(save.Child("raw.lxa1").GetLength(), 1048576);
    EXPECT_FALSE(save.Child("raw.lxa0").Exists());
    EXPECT_FALSE(save.Child("raw.lxa2").Exists());
    // Only raw and enc report their chunk files; the other members are saved whole, unreported.
    EXPECT_EQ(Names(info.addedFiles), (std::vector<std::string>{"enc.lxa1", "raw.lxa1"}));
    EXPECT_TRUE(info.changedFiles.empty());
    EXPECT_TRUE(save.Child("pcm.lxa1").Exists());
    EXPECT_TRUE(save.Child("map.lxa1").Exists());

    // Four bytes more: two chunks and a count file. "enc.lxa" did not grow (four
    // bytes fill no thumbnail group), so its chunk is neither written nor reported.
    GrowRaw(store, 4);
    info.Clear();
    ASSERT_TRUE(store.WriteTo(save.Dir(), true, &info));
    EXPECT_EQ(save.Child("raw.lxa1").GetLength(), 1048576);
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 4);
    EXPECT_EQ(Bytes(save.Child("raw.lxa0")), (std::vector<uint8_t>{2, 0, 0, 0}));
    EXPECT_EQ(Names(info.addedFiles), (std::vector<std::string>{"raw.lxa0", "raw.lxa2"}));
    EXPECT_TRUE(info.changedFiles.empty());

    // Ten bytes more, incrementally: appended to the second chunk only.
    LxFile first = save.Child("raw.lxa1");
    std::vector<uint8_t> firstBefore = Bytes(first);
    GrowRaw(store, 10);
    info.Clear();
    ASSERT_TRUE(store.WriteTo(save.Dir(), true, &info));
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 14);
    EXPECT_EQ(Bytes(first), firstBefore);
    EXPECT_EQ(Names(info.changedFiles), (std::vector<std::string>{"raw.lxa2"}));
    EXPECT_TRUE(info.addedFiles.empty());
    EXPECT_TRUE(info.deletedFiles.empty());

    // The saved directory loads back into an identical store, and an
    // incremental save after the load continues where the load left off.
    TempDir other;
    LxAudioFile loaded(other.Dir());
    ASSERT_TRUE(loaded.ReadFrom(save.Dir()));
    loaded.Flush();
    store.Flush();
    for (const char* name : kMembers) EXPECT_EQ(Bytes(other.Child(name)), Bytes(work.Child(name))) << name;
    info.Clear();
    loaded.WriteTo(save.Dir(), true, &info);
    EXPECT_TRUE(info.addedFiles.empty() && info.changedFiles.empty() && info.deletedFiles.empty());
    GrowRaw(loaded, 6);
    loaded.WriteTo(save.Dir(), true, &info);
    EXPECT_EQ(Names(info.changedFiles), (std::vector<std::string>{"raw.lxa2"}));
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 20);
}

TEST(StorePersistence, FullSavesDeleteLeftoverChunksAndBadChunksAreRewritten) {
    TempDir work, save;
    {
        LxAudioFile big(work.Dir());
        GrowRaw(big, 3 * 1048576 + 5);
        big.WriteTo(save.Dir(), false, nullptr);
    }
    EXPECT_TRUE(save.Child("raw.lxa4").Exists());
    TempDir work2;
    LxAudioFile small(work2.Dir());
    GrowRaw(small, 1048580);
    LxZipUpdateInfo info;
    small.WriteTo(save.Dir(), false, &info);
    EXPECT_EQ(Names(info.deletedFiles), (std::vector<std::string>{"raw.lxa3", "raw.lxa4"}));
    EXPECT_FALSE(save.Child("raw.lxa3").Exists());
    EXPECT_EQ(Bytes(save.Child("raw.lxa0")), (std::vector<uint8_t>{2, 0, 0, 0}));

    // A chunk that no longer holds what the last save wrote: reported, and the
    // member is saved whole so that the directory stays loadable.
    WriteBytes(save.Child("raw.lxa2"), {1, 2, 3});
    GrowRaw(small, 6);
    AssertRecorder recorder;
    small.WriteTo(save.Dir(), true, nullptr);
    ExpectSingleReport(recorder, "", "source/components/audiocore/LxAudioFile",
                       SourceLineOf("source/components/audiocore/LxMemberStream.cpp", "return SaveChunks(directory, 0, info);") - 1);
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 10);
    TempDir check;
    LxAudioFile loaded(check.Dir());
    loaded.ReadFrom(save.Dir());
    loaded.Flush();
    small.Flush();
    EXPECT_EQ(Bytes(check.Child("raw.lxa")), Bytes(work2.Child("raw.lxa")));
}

TEST(StorePersistence, DamagedClipTablesKeepWhatCanBeRead) {
    TempDir tmp;
    {
        LxAudioFile store(tmp.Dir());
        store.Close();
    }
    // The store deleted its files; write a damaged set by hand and open it.
    TempDir dir;
    {
        LxAudioFile store(dir.Dir());
        StoreClip(store, 900, 1);
        StoreClip(store, 1800, 2);
        store.Flush();
        store.Close();
        // count 5 but two pairs, and ID 1 twice with a bad second position
        std::vector<uint8_t> map = {5, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 99, 0, 0, 0};
        std::vector<uint8_t> clip = Bytes(dir.Child("clip.lxa"));
        std::vector<uint8_t> pcm = Bytes(dir.Child("pcm.lxa"));
        std::vector<uint8_t> raw = Bytes(dir.Child("raw.lxa"));
        std::vector<uint8_t> enc = Bytes(dir.Child("enc.lxa"));
        WriteBytes(tmp.Child("map.lxa"), map);
        WriteBytes(tmp.Child("clip.lxa"), clip);
        WriteBytes(tmp.Child("pcm.lxa"), pcm);
        WriteBytes(tmp.Child("raw.lxa"), raw);
        WriteBytes(tmp.Child("enc.lxa"), enc);
    }
    AssertRecorder recorder;
    LxAudioFile store(tmp.Dir());
    EXPECT_EQ(recorder.Count(), 1u);
    std::list<int> ids;
    store.GetClipIDs(ids);
    EXPECT_EQ(ids, (std::list<int>{1}));
    LxAudioClip clip(store, 1);
    EXPECT_EQ(clip.WorthInFrames(), 900);
    // Gaps in IDs are never reused: the next ID follows the largest.
    EXPECT_EQ(StoreClip(store, 90, 3), 2);
}

TEST(StorePersistence, IncompleteChunkDirectoriesAreRefusedBeforeAnythingChanges) {
    TempDir work, save;
    {
        LxAudioFile store(work.Dir());
        GrowRaw(store, 2 * 1048576 + 100);  // raw.lxa1..3 and raw.lxa0 holding 3
        StoreClip(store, 900, 1);
        ASSERT_TRUE(store.WriteTo(save.Dir(), false, nullptr));
    }
    const std::vector<uint8_t> second = Bytes(save.Child("raw.lxa2"));
    struct Damage {
        const char* what;
        std::function<void()> apply, undo;
    };
    const std::vector<Damage> damages = {
        {"a middle chunk missing", [&] { save.Child("raw.lxa2").Delete(); }, [&] { WriteBytes(save.Child("raw.lxa2"), second); }},
        {"a middle chunk short",
         [&] { WriteBytes(save.Child("raw.lxa2"), std::vector<uint8_t>(second.begin(), second.end() - 1)); },
         [&] { WriteBytes(save.Child("raw.lxa2"), second); }},
        {"a count beyond the chunks", [&] { WriteBytes(save.Child("raw.lxa0"), {4, 0, 0, 0}); },
         [&] { WriteBytes(save.Child("raw.lxa0"), {3, 0, 0, 0}); }},
        {"a count of one in a count file", [&] { WriteBytes(save.Child("raw.lxa0"), {1, 0, 0, 0}); },
         [&] { WriteBytes(save.Child("raw.lxa0"), {3, 0, 0, 0}); }},
        {"a count file cut short", [&] { WriteBytes(save.Child("raw.lxa0"), {3, 0}); },
         [&] { WriteBytes(save.Child("raw.lxa0"), {3, 0, 0, 0}); }},
        {"a count too large for 32-bit positions", [&] { WriteBytes(save.Child("raw.lxa0"), {0, 0, 0, 0x40}); },
         [&] { WriteBytes(save.Child("raw.lxa0"), {3, 0, 0, 0}); }},
        {"an oversized single chunk", [&] { WriteBytes(save.Child("pcm.lxa1"), std::vector<uint8_t>(1048577, 0)); },
         [&] { save.Child("pcm.lxa1").Delete(); }},
    };
    TempDir target;
    LxAudioFile store(target.Dir());
    int mine = StoreClip(store, 1980, 3);
    store.Flush();
    const std::vector<uint8_t> before = Bytes(target.Child("pcm.lxa"));
    std::vector<uint8_t> pcmSaved = Bytes(save.Child("pcm.lxa1"));
    for (const Damage& damage : damages) {
        damage.apply();
        AssertRecorder recorder;
        EXPECT_FALSE(store.ReadFrom(save.Dir())) << damage.what;
        ExpectSingleReport(recorder, "saved store member is incomplete", "source/components/audiocore/LxAudioFile",
                           SourceLineOf("source/components/audiocore/LxAudioFile.cpp", "\"saved store member is incomplete\""));
        damage.undo();
        if (!save.Child("pcm.lxa1").Exists()) WriteBytes(save.Child("pcm.lxa1"), pcmSaved);
    }
    store.Flush();
    EXPECT_EQ(Bytes(target.Child("pcm.lxa")), before);
    LxAudioClip clip(store, mine);
    EXPECT_EQ(clip.WorthInFrames(), 1980);
    // Undamaged again, it loads; a member saved empty has no chunk file at all.
    EXPECT_FALSE(save.Child("clip.lxa0").Exists());
    ASSERT_TRUE(store.ReadFrom(save.Dir()));
    LxAudioClip loaded(store, 1);
    EXPECT_EQ(ReadAll(loaded, 2), MakeRamp(900, 2, 1));
    TempDir empty;
    LxAudioFile cleared(empty.Dir());
    cleared.Clear();
    TempDir emptySave;
    cleared.WriteTo(emptySave.Dir(), false, nullptr);
    EXPECT_FALSE(emptySave.Child("pcm.lxa1").Exists());
    EXPECT_TRUE(store.ReadFrom(emptySave.Dir()));
    int sizes[5];
    store.GetMemberSizes(sizes);
    EXPECT_EQ(std::vector<int>(sizes, sizes + 5), (std::vector<int>{0, 0, 0, 0, 4}));
}

TEST(StorePersistence, IncrementalSavesIntoAnotherDirectoryFallBackToWhole) {
    // The host saved 1 MiB exactly (one full chunk), then asks for an incremental
    // save into a directory that lacks it: appending there would lose that chunk.
    TempDir work, first, second;
    LxAudioFile store(work.Dir());
    GrowRaw(store, 1048576);
    store.WriteTo(first.Dir(), false, nullptr);
    GrowRaw(store, 20);
    AssertRecorder recorder;
    LxZipUpdateInfo info;
    store.WriteTo(second.Dir(), true, &info);
    ASSERT_EQ(recorder.Count(), 2u);  // raw.lxa (at a chunk boundary) and enc.lxa (mid-chunk)
    EXPECT_EQ(second.Child("raw.lxa1").GetLength(), 1048576);
    EXPECT_EQ(second.Child("raw.lxa2").GetLength(), 20);
    EXPECT_EQ(Names(info.addedFiles), (std::vector<std::string>{"enc.lxa1", "raw.lxa0", "raw.lxa1", "raw.lxa2"}));
    TempDir check;
    LxAudioFile loaded(check.Dir());
    ASSERT_TRUE(loaded.ReadFrom(second.Dir()));
    loaded.Flush();
    store.Flush();
    for (const char* name : kMembers) EXPECT_EQ(Bytes(check.Child(name)), Bytes(work.Child(name))) << name;
}

TEST(StorePersistence, RawDataStaysWhileAnyPageStillNeedsIt) {
    // A page the encoder cannot take (here: one sample of a stereo page, no whole
    // frame) stays raw although the compressor has visited it. Saving must keep
    // "raw.lxa": it is that page's only copy.
    TempDir work, other, saveDir;
    LxAudioFile store(work.Dir());
    int clipID = StoreClip(store, 4410, 1);
    int16_t lonely = 1234;
    int rawPage = -1;
    store.AppendPage(&lonely, 2, 2, 44100, 16, rawPage);
    store.CompressAllPages(nullptr);
    EXPECT_FALSE(store.HasPagesToCompress());
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(rawPage, record));
    ASSERT_EQ(record.codec, 1);

    LxMemoryStream saved;
    ASSERT_TRUE(store.WriteTo(saved));
    ASSERT_TRUE(store.WriteTo(saveDir.Dir(), false, nullptr));
    for (int form = 0; form < 2; ++form) {
        LxAudioFile loaded(other.Dir());
        saved.Seek(0, kLxSeekBegin);
        ASSERT_TRUE(form == 0 ? loaded.ReadFrom(saved) : loaded.ReadFrom(saveDir.Dir()));
        ASSERT_TRUE(loaded.ReadPageHeader(rawPage, record));
        int16_t out = 0;
        int got = 0;
        loaded.ReadPageData(record, 2, &out, 2, got);
        EXPECT_EQ(got, 2) << form;
        EXPECT_EQ(out, 1234) << form;
        LxAudioClip clip(loaded, clipID);
        EXPECT_EQ(clip.WorthInFrames(), 4410);
    }
    // Once nothing refers to "raw.lxa", a save leaves it out.
    LxAudioFile onlyCompressed(other.Dir());
    StoreClip(onlyCompressed, 4410, 2);
    onlyCompressed.CompressAllPages(nullptr);
    LxMemoryStream small;
    ASSERT_TRUE(onlyCompressed.WriteTo(small));
    int sizes[5];
    onlyCompressed.GetMemberSizes(sizes);
    EXPECT_EQ(sizes[0], 0);
}
