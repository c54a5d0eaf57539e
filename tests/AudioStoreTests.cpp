// The store's page format and member files, byte by byte: reserved silence,
// page records and thumbnails, reading with channel conversion, damaged records,
// copying pages between stores.
#include <gtest/gtest.h>

#include <cstring>
#include "AssertRecorder.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPCMDataStream.h"
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
