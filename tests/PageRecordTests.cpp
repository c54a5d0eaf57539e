// Page records as the store hands them out must always be what "pcm.lxa" holds:
// after appends, compression, loads, clears and compaction, after a write that
// never reached the disk, and a damaged record must be refused every time it is
// read.
#include <gtest/gtest.h>

#include <string>

#include "AssertRecorder.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPublic/LxFaultInjection.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

// A record's fields in their order in "pcm.lxa".
enum Field { kCodec, kPcmBytes, kChannels = 6 };
std::vector<int> Fields(const LxPCMData& r) {
    return {r.codec, r.pcmBytes, r.dataRange.start, r.dataRange.end, r.thumbnailRange.start, r.thumbnailRange.end,
            r.channels, r.sampleRate, r.bitsPerSample};
}

// The record at page of the store's "pcm.lxa" as the file holds it (the store
// flushed first); all zero when the file ends before it.
std::vector<int> RecordInFile(LxAudioFile& store, int page) {
    store.Flush();
    const std::vector<uint8_t> bytes = FileBytes(store.GetDirectory().GetChild("pcm.lxa"));
    std::vector<int> fields(9, 0);
    for (size_t f = 0; page >= 0 && static_cast<size_t>(page) + 36 <= bytes.size() && f < 9; ++f)
        fields[f] = ReadLe32(bytes, static_cast<size_t>(page) + 4 * f);
    return fields;
}

// Every record the store hands out equals the file's, and the file holds pages records.
void ExpectRecordsAsInFile(LxAudioFile& store, int pages) {
    store.Flush();
    EXPECT_EQ(store.GetDirectory().GetChild("pcm.lxa").GetLength(), 36 * pages);
    for (int page = 0; page < 36 * (pages + 2); page += 36) {
        LxPCMData fromStore;
        EXPECT_EQ(store.ReadPageHeader(page, fromStore), page < 36 * pages) << page;
        EXPECT_EQ(Fields(fromStore), RecordInFile(store, page)) << page;
    }
}

// Byte offset of "pcm.lxa" inside a whole-store stream: it is the third member.
size_t PcmMemberOffset(const std::vector<uint8_t>& saved) {
    const size_t second = 4 + static_cast<size_t>(ReadLe32(saved, 0));
    return second + 4 + static_cast<size_t>(ReadLe32(saved, second)) + 4;
}

}  // namespace

TEST(PageRecords, FollowEveryRewriteOfThePageFile) {
    TempDir a, b;
    LxAudioFile store(a.Dir());
    StoreClip(store, MakeRamp(99990, 2, 1), 2);                     // pages 180, 216, 252
    const int second = StoreClip(store, MakeRamp(29970, 1, 2), 1);  // page 288
    ExpectRecordsAsInFile(store, 9);
    EXPECT_EQ(RecordInFile(store, 216)[kCodec], kLxPageCodecRaw);

    // Compression rewrites records in place.
    EXPECT_EQ(store.CompressAllPages(nullptr), 4);
    ExpectRecordsAsInFile(store, 9);
    EXPECT_EQ(RecordInFile(store, 216)[kCodec], kLxPageCodecVorbis);

    // Compaction renumbers: the mono page moves from 288 to 180.
    LxAudioClip before(store, second);
    const std::vector<int16_t> decoded = ReadAll(before, 1);
    ASSERT_EQ(decoded.size(), 29970u);
    std::list<int> keep{second};
    ASSERT_TRUE(store.Compact(keep, nullptr));
    ExpectRecordsAsInFile(store, 6);
    EXPECT_EQ(RecordInFile(store, 180)[kChannels], 1);
    LxAudioClip kept(store, keep.front());
    EXPECT_EQ(ReadAll(kept, 1), decoded);

    // Loading another store's stream replaces every record, fewer of them.
    LxMemoryStream saved;
    {
        LxAudioFile other(b.Dir());
        AppendPage(other, MakeRamp(500, 2, 3), 2);
        AppendPage(other, MakeRamp(700, 2, 4), 2);
        ASSERT_TRUE(other.WriteTo(saved));
    }
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(store.ReadFrom(saved));
    ExpectRecordsAsInFile(store, 7);
    EXPECT_EQ(RecordInFile(store, 216)[kPcmBytes], 2800);

    // A clear: the next page is page 0 again.
    store.Clear();
    ExpectRecordsAsInFile(store, 0);
    EXPECT_EQ(AppendPage(store, MakeRamp(90, 1, 6), 1), 0);
    ExpectRecordsAsInFile(store, 1);
}

TEST(PageRecords, DamagedRecordsAreRefusedOnEveryRead) {
    TempDir a, b;
    LxMemoryStream saved;
    {
        LxAudioFile source(a.Dir());
        AppendPage(source, MakeRamp(1000, 2), 2);
        ASSERT_TRUE(source.WriteTo(saved));
    }
    std::vector<uint8_t> damaged = saved.GetBytes();
    damaged[PcmMemberOffset(damaged) + 180 + 24] = 99;  // channels of page 180

    LxAudioFile store(b.Dir());
    AppendPage(store, MakeRamp(1000, 1), 1);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(180, record));  // a good record at 180 before the load
    LxMemoryStream in(damaged);
    ASSERT_TRUE(store.ReadFrom(in));
    const std::string source = "source/components/audiocore/LxPCMDataStream";
    const int line = SourceLineOf(source + ".cpp", "if (!IsReadable(record)) {") + 1;
    for (int read = 0; read < 2; ++read) {
        AssertRecorder recorder;
        EXPECT_FALSE(store.ReadPageHeader(180, record));
        EXPECT_EQ(record.codec, 0);
        ExpectSingleReport(recorder, "invalid page record", source, line);
    }
    // A record appended with a format no page can have is refused when read, too.
    AssertRecorder recorder;
    int page = -1;
    store.AppendSilentPage(100, 40, 44100, 16, page);
    EXPECT_EQ(page, 216);
    EXPECT_FALSE(store.ReadPageHeader(216, record));
    EXPECT_EQ(recorder.Count(), 1u);
}

TEST(PageRecords, ARecordThatNeverReachedTheDiskIsNotHandedOut) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    const int page = AppendPage(store, MakeRamp(20000, 2), 2);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(page, record));
    store.Flush();
    {
        AssertRecorder quiet;
        LxFaultInjection::SetDiskSpace(0);  // the compressed page and its record stay in the buffers
        for (int call = 0; call < 5; ++call) EXPECT_FALSE(store.CompressOnePage());  // the reserved pages
        EXPECT_TRUE(store.CompressOnePage());
        store.Flush();
        LxFaultInjection::Reset();
    }
    EXPECT_TRUE(store.IsDamaged());
    ASSERT_TRUE(store.ReadPageHeader(page, record));
    EXPECT_EQ(record.codec, kLxPageCodecRaw);
    ExpectRecordsAsInFile(store, 6);
    std::vector<int16_t> out(40000);
    int got = 0;
    store.ReadPageData(record, 2, out.data(), 80000, got);
    EXPECT_EQ(got, 80000);
    EXPECT_EQ(out, MakeRamp(20000, 2));
}

