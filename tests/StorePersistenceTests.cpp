// Saving and loading a store: into one stream and into a directory of chunk
// files (full and incremental), and what damaged saved forms do.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <optional>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxZipUpdateInfo.h"
#include "PcmHelpers.h"
#include "StoreAccess.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

constexpr int kChunk = 1048576;

// Grows "raw.lxa" by exactly bytes (non-silent pages of at most a page each).
void GrowRaw(LxAudioFile& store, int bytes) {
    for (int n; bytes > 0; bytes -= n) {
        n = std::min(bytes, 176400);
        std::vector<int16_t> pcm = MakePcm(n / 2 + 1, 1, [](int i) { return i % 100 + 1; });
        int page = -1;
        store.AppendPage(pcm.data(), n, 1, 44100, 16, page);
    }
}

int Record(LxAudioFile& store, int frames, int seed) { return StoreClip(store, MakeRamp(frames, 2, seed), 2); }

// Every member file of two stores' directories is the same.
void ExpectSameMembers(LxAudioFile& a, const TempDir& aDir, LxAudioFile& b, const TempDir& bDir) {
    a.Flush();
    b.Flush();
    for (const char* name : kStoreMembers) EXPECT_EQ(FileBytes(aDir.Child(name)), FileBytes(bDir.Child(name))) << name;
}

}  // namespace

TEST(StorePersistence, OneStreamHoldsFiveLengthPrefixedMembers) {
    TempDir a, b;
    LxMemoryStream saved;
    LxAudioFile store(a.Dir());
    Record(store, 50000, 1);
    Record(store, 69975, 2);
    ASSERT_TRUE(store.WriteTo(saved));
    // Five times: 32-bit length, that many bytes.
    std::vector<uint8_t> expected;
    store.Flush();
    for (const char* name : kStoreMembers) {
        const std::vector<uint8_t> member = FileBytes(a.Child(name));
        const std::vector<uint8_t> length = Le32({static_cast<int64_t>(member.size())});
        expected.insert(expected.end(), length.begin(), length.end());
        expected.insert(expected.end(), member.begin(), member.end());
    }
    EXPECT_EQ(saved.GetBytes(), expected);

    LxAudioFile reloaded(b.Dir());
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(reloaded.ReadFrom(saved));
    ExpectSameMembers(store, a, reloaded, b);
    LxAudioClip clip(reloaded, 2);
    EXPECT_EQ(clip.WorthInFrames(), 69975);
    EXPECT_EQ(ReadAll(clip, 2), MakeRamp(69975, 2, 2));
}

TEST(StorePersistence, DamagedStreamsLeaveTheStoreAsItWas) {
    TempDir a, b;
    LxMemoryStream saved;
    {
        LxAudioFile store(a.Dir());
        Record(store, 1000, 1);
        store.WriteTo(saved);
    }
    LxAudioFile target(b.Dir());
    int mine = Record(target, 1980, 3);
    target.Flush();
    const std::vector<uint8_t> before = FileBytes(b.Child("pcm.lxa"));
    const std::vector<uint8_t>& good = saved.GetBytes();
    std::vector<uint8_t> huge = good;
    huge[0] = huge[1] = huge[2] = 0xFF, huge[3] = 0x7F;  // a length beyond the end
    for (const std::vector<uint8_t>& damaged : {std::vector<uint8_t>(good.begin(), good.end() - 1), huge}) {
        AssertRecorder recorder;
        LxMemoryStream in(damaged);
        EXPECT_FALSE(target.ReadFrom(in)) << damaged.size();
        ASSERT_EQ(recorder.Count(), 1u) << damaged.size();
        EXPECT_EQ(recorder.Reports()[0].sourceFile, "source/components/audiocore/LxAudioFile");
    }
    target.Flush();
    EXPECT_EQ(FileBytes(b.Child("pcm.lxa")), before);
    EXPECT_EQ(LxAudioClip(target, mine).WorthInFrames(), 1980);
}

TEST(StorePersistence, ChunkFilesSplitAtOneMebibyte) {
    TempDir work, save;
    LxAudioFile store(work.Dir());
    GrowRaw(store, kChunk);
    LxZipUpdateInfo info;
    ASSERT_TRUE(store.WriteTo(save.Dir(), false, &info));
    EXPECT_EQ(save.Child("raw.lxa1").GetLength(), kChunk);
    EXPECT_FALSE(save.Child("raw.lxa0").Exists());
    // Only raw and enc report their chunk files; the other members are saved whole, unreported.
    EXPECT_EQ(SortedNames(info.addedFiles), (std::vector<std::string>{"enc.lxa1", "raw.lxa1"}));
    EXPECT_TRUE(save.Child("pcm.lxa1").Exists());

    // Four bytes more: two chunks and a count file. "enc.lxa" did not grow (four
    // bytes fill no thumbnail group), so its chunk is neither written nor reported.
    GrowRaw(store, 4);
    info.Clear();
    ASSERT_TRUE(store.WriteTo(save.Dir(), true, &info));
    EXPECT_EQ(save.Child("raw.lxa1").GetLength(), kChunk);
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 4);
    EXPECT_EQ(FileBytes(save.Child("raw.lxa0")), Le32({2}));
    EXPECT_EQ(SortedNames(info.addedFiles), (std::vector<std::string>{"raw.lxa0", "raw.lxa2"}));

    // Ten bytes more, incrementally: appended to the second chunk only.
    const std::vector<uint8_t> firstBefore = FileBytes(save.Child("raw.lxa1"));
    GrowRaw(store, 10);
    info.Clear();
    ASSERT_TRUE(store.WriteTo(save.Dir(), true, &info));
    EXPECT_EQ(save.Child("raw.lxa2").GetLength(), 14);
    EXPECT_EQ(FileBytes(save.Child("raw.lxa1")), firstBefore);
    // The count file is written again, with the same count, and reported with it.
    EXPECT_EQ(SortedNames(info.changedFiles), (std::vector<std::string>{"raw.lxa0", "raw.lxa2"}));
    EXPECT_TRUE(info.addedFiles.empty());
}

TEST(StorePersistence, FullSavesDeleteLeftoverChunksAndBadChunksAreRewritten) {
    TempDir work, save;
    {
        LxAudioFile big(work.Dir());
        GrowRaw(big, 3 * kChunk + 5);
        big.WriteTo(save.Dir(), false, nullptr);
    }
    EXPECT_TRUE(save.Child("raw.lxa4").Exists());
    TempDir work2;
    LxAudioFile small(work2.Dir());
    GrowRaw(small, kChunk + 4);
    LxZipUpdateInfo info;
    small.WriteTo(save.Dir(), false, &info);
    EXPECT_EQ(SortedNames(info.deletedFiles), (std::vector<std::string>{"raw.lxa3", "raw.lxa4"}));
    EXPECT_FALSE(save.Child("raw.lxa3").Exists());
    EXPECT_EQ(FileBytes(save.Child("raw.lxa0")), Le32({2}));

    // A chunk that no longer holds what the last save wrote: reported, and the
    // member is saved whole so that the directory stays loadable.
    WriteFileBytes(save.Child("raw.lxa2"), {1, 2, 3});
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
    EXPECT_EQ(FileBytes(check.Child("raw.lxa")), FileBytes(work2.Child("raw.lxa")));
}

TEST(StorePersistence, IncompleteChunkDirectoriesAreRefusedBeforeAnythingChanges) {
    TempDir work, save;
    {
        LxAudioFile store(work.Dir());
        GrowRaw(store, 2 * kChunk + 100);  // raw.lxa1..3 and raw.lxa0 holding 3
        Record(store, 900, 1);
        ASSERT_TRUE(store.WriteTo(save.Dir(), false, nullptr));
    }
    const std::vector<uint8_t> second = FileBytes(save.Child("raw.lxa2"));
    struct Damage {
        const char* what;
        const char* file;
        std::optional<std::vector<uint8_t>> bytes;  // none: the file is deleted
    };
    const Damage damages[] = {
        {"a middle chunk missing", "raw.lxa2", std::nullopt},
        {"a middle chunk short", "raw.lxa2", std::vector<uint8_t>(second.begin(), second.end() - 1)},
        {"a count too large for 32-bit positions", "raw.lxa0", Le32({0x40000000})},
        {"an oversized single chunk", "pcm.lxa1", std::vector<uint8_t>(kChunk + 1, 0)},
    };
    TempDir target;
    LxAudioFile store(target.Dir());
    int mine = Record(store, 1980, 3);
    store.Flush();
    const std::vector<uint8_t> before = FileBytes(target.Child("pcm.lxa"));
    for (const Damage& damage : damages) {
        SCOPED_TRACE(damage.what);
        LxFile file = save.Child(damage.file);
        const std::vector<uint8_t> good = FileBytes(file);
        if (damage.bytes) WriteFileBytes(file, *damage.bytes);
        else file.Delete();
        AssertRecorder recorder;
        EXPECT_FALSE(store.ReadFrom(save.Dir()));
        // Saving and loading moved out of LxAudioFile.cpp; its reports kept the store's file name.
        ExpectSingleReport(recorder, "saved store member is incomplete", "source/components/audiocore/LxAudioFile",
                           SourceLineOf("source/components/audiocore/LxStorePersistence.cpp",
                                        "\"saved store member is incomplete\""));
        WriteFileBytes(file, good);
    }
    store.Flush();
    EXPECT_EQ(FileBytes(target.Child("pcm.lxa")), before);
    EXPECT_EQ(LxAudioClip(store, mine).WorthInFrames(), 1980);
    // Undamaged again, it loads; a member saved empty has no chunk file at all.
    EXPECT_FALSE(save.Child("clip.lxa0").Exists());
    ASSERT_TRUE(store.ReadFrom(save.Dir()));
    LxAudioClip loaded(store, 1);
    EXPECT_EQ(ReadAll(loaded, 2), MakeRamp(900, 2, 1));
}

TEST(StorePersistence, IncrementalSavesIntoAnotherDirectoryFallBackToWhole) {
    // The host saved 1 MiB exactly (one full chunk), then asks for an incremental
    // save into a directory that lacks it: appending there would lose that chunk.
    TempDir work, first, second;
    LxAudioFile store(work.Dir());
    GrowRaw(store, kChunk);
    store.WriteTo(first.Dir(), false, nullptr);
    GrowRaw(store, 20);
    AssertRecorder recorder;
    LxZipUpdateInfo info;
    store.WriteTo(second.Dir(), true, &info);
    ASSERT_EQ(recorder.Count(), 2u);  // raw.lxa (at a chunk boundary) and enc.lxa (mid-chunk)
    EXPECT_EQ(second.Child("raw.lxa1").GetLength(), kChunk);
    EXPECT_EQ(second.Child("raw.lxa2").GetLength(), 20);
    EXPECT_EQ(SortedNames(info.addedFiles), (std::vector<std::string>{"enc.lxa1", "raw.lxa0", "raw.lxa1", "raw.lxa2"}));
    TempDir check;
    LxAudioFile loaded(check.Dir());
    ASSERT_TRUE(loaded.ReadFrom(second.Dir()));
    ExpectSameMembers(store, work, loaded, check);
}

TEST(StorePersistence, RawDataStaysWhileAnyPageStillNeedsIt) {
    // A page the encoder cannot take (here: one sample of a stereo page, no whole
    // frame) stays raw although the compressor has visited it. Saving must keep
    // "raw.lxa": it is that page's only copy.
    TempDir work, other;
    LxAudioFile store(work.Dir());
    int clipID = Record(store, 4410, 1);
    int16_t lonely = 1234;
    int rawPage = -1;
    store.AppendPage(&lonely, 2, 2, 44100, 16, rawPage);
    store.CompressAllPages(nullptr);
    EXPECT_FALSE(store.HasPagesToCompress());
    ASSERT_EQ(PageRecord(store, rawPage).codec, 1);

    LxMemoryStream saved;
    ASSERT_TRUE(store.WriteTo(saved));
    {
        LxAudioFile loaded(other.Dir());
        saved.Seek(0, kLxSeekBegin);
        ASSERT_TRUE(loaded.ReadFrom(saved));
        int16_t out = 0;
        int got = 0;
        loaded.ReadPageData(PageRecord(loaded, rawPage), 2, &out, 2, got);
        EXPECT_EQ(got, 2);
        EXPECT_EQ(out, 1234);
        EXPECT_EQ(LxAudioClip(loaded, clipID).WorthInFrames(), 4410);
    }
    // Once nothing refers to "raw.lxa", a save leaves it out: a length of 0 first.
    LxAudioFile onlyCompressed(other.Dir());
    Record(onlyCompressed, 4410, 2);
    onlyCompressed.CompressAllPages(nullptr);
    LxMemoryStream small;
    ASSERT_TRUE(onlyCompressed.WriteTo(small));
    EXPECT_EQ(std::vector<uint8_t>(small.GetBytes().begin(), small.GetBytes().begin() + 4), Le32({0}));
    EXPECT_EQ(MemberSizes(onlyCompressed)[0], 0);
}

TEST(StorePersistence, ProjectsReadInPlaceChangeAndSaveLikeCopiedOnes) {
    // A saved project loaded by copying its members and the same project read
    // in place take the same changes (a new clip, a page compressed, a
    // compaction) and save the same bytes, integrity record included; the one
    // read in place goes on reading its file after another takes its name.
    TempDir source, saves;
    const LxFile project = saves.Child("project.lxp");
    std::vector<int16_t> first = MakeRamp(300000, 2, 1);  // "raw.lxa" over a chunk boundary
    {
        LxAudioFile store(source.Dir());
        StoreClip(store, first, 2);
        Record(store, 70000, 2);
        store.CompressOnePage();
        auto out = LxStreamUtil::CreateFileStreamReadWrite(project, kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
        ASSERT_TRUE(out && store.WriteVerifiedTo(*out));
    }
    struct Load {
        const char* name;
        bool inPlace;
    };
    std::vector<std::vector<uint8_t>> saved;
    std::vector<std::vector<int16_t>> audio;
    for (const Load& load : {Load{"copied", false}, Load{"in place", true}}) {
        SCOPED_TRACE(load.name);
        TempDir work;
        LxAudioFile store(work.Dir());
        LxAudioDamageReport report;
        if (load.inPlace) {
            ASSERT_TRUE(store.ReadVerifiedInPlace(project, report));
        } else {
            auto in = LxStreamUtil::CreateFileStreamRead(project);
            ASSERT_TRUE(in && store.ReadVerifiedFrom(*in, report));
        }
        ASSERT_TRUE(report.verified);
        Record(store, 50000, 3);
        // One more page compressed (the compressor passes over silent and compressed pages first).
        while (!store.CompressOnePage() && store.HasPagesToCompress()) {
        }
        std::list<int> keep = {1, 3};
        ASSERT_TRUE(store.Compact(keep, nullptr));
        const LxFile out = saves.Child(load.inPlace ? "in-place.lxp" : "copied.lxp");
        {
            auto stream = LxStreamUtil::CreateFileStreamReadWrite(out, kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
            ASSERT_TRUE(stream && store.WriteVerifiedTo(*stream));
        }
        saved.push_back(FileBytes(out));
        if (load.inPlace && LxFileUtil::CanRenameOverOpenFile()) {
            // The saved project takes the old one's name, as the tool's saves do.
            ASSERT_TRUE(out.RenameTo(project));
        }
        LxAudioClip clip(store, keep.front());
        audio.push_back(ReadAll(clip, 2));
        // Every byte saved is checked on the next load.
        TempDir again;
        LxAudioFile reloaded(again.Dir());
        LxAudioDamageReport check;
        EXPECT_TRUE(reloaded.ReadVerifiedInPlace(load.inPlace ? project : out, check));
        EXPECT_TRUE(check.verified && !check.IsDamaged());
    }
    EXPECT_EQ(saved[0], saved[1]);
    EXPECT_EQ(audio[0], audio[1]);
}
