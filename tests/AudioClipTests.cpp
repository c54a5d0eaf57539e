// The audio clip: PCM in through pages of the store, PCM out with effects,
// channel conversion, portions and mixing.
#include <gtest/gtest.h>

#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

const unsigned char* Bytes(const std::vector<int16_t>& pcm) { return reinterpret_cast<const unsigned char*>(pcm.data()); }
}  // namespace

TEST(AudioClip, AppendingCutsPagesAndKeepsAFullPagePending) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> page = MakeRamp(44100, 2);
    LxAudioClip clip(store, -1, LX_AUDIO_CLIP_SOURCE_RECORDING);
    clip.AppendPCMData(Bytes(page), 176400, 2, 44100, 16, 1.0f);
    LxPCMData record;
    EXPECT_FALSE(store.ReadPageHeader(180, record));  // a full page stays pending
    EXPECT_TRUE(clip.IsEmpty());
    unsigned char one = 5;
    clip.AppendPCMData(&one, 1, 2, 44100, 16, 1.0f);
    ASSERT_TRUE(store.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 1);
    EXPECT_EQ(record.pcmBytes, 176400);
    ASSERT_EQ(clip.GetPageRanges().size(), 1u);
    EXPECT_EQ(clip.GetPageRanges()[0], LxPageRange(&store, LxAudioVolumeEffect(), 180, 0, 180, 176400));

    // Two more full pages and 100 bytes: one range over three consecutive
    // pages; the tail is rounded down to whole 180-byte blocks (here: nothing).
    LxAudioClip three(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
    std::vector<int16_t> pcm = MakeRamp(3 * 44100 + 25, 2);
    three.AppendPCMData(Bytes(pcm), 3 * 176400 + 100, 2, 44100, 16, 0.5f);
    int id = three.FinishAppendingPCMData(2, 44100, 16, 0.5f);
    EXPECT_EQ(id, 1);
    ASSERT_EQ(three.GetPageRanges().size(), 1u);
    EXPECT_EQ(three.GetPageRanges()[0], LxPageRange(&store, LxAudioVolumeEffect(0.5f, 0, 1), 216, 0, 288, 176400));
    EXPECT_FALSE(store.ReadPageHeader(324, record));

    // 200 bytes become one page of 180 bytes; nothing at all gives no clip.
    LxAudioClip small(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
    small.AppendPCMData(Bytes(pcm), 200, 1, 44100, 16, 1.0f);
    EXPECT_EQ(small.FinishAppendingPCMData(1, 44100, 16, 1.0f), 2);
    ASSERT_TRUE(store.ReadPageHeader(324, record));
    EXPECT_EQ(record.pcmBytes, 180);
    LxAudioClip nothing(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
    EXPECT_EQ(nothing.FinishAppendingPCMData(1, 44100, 16, 1.0f), -1);

    EXPECT_TRUE(LxAudioClip(store, 1).IsSameAs(three));
}

TEST(AudioClip, ReadsBackWhatWasAppendedWithEffectsAndChannelConversion) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> stereo = MakeRamp(2 * 44100 + 900, 2, 3);
    int id = StoreClip(store, stereo, 2);
    LxAudioClip clip(store, id);
    EXPECT_EQ(ReadAll(clip, 2), stereo);

    // Stereo read as mono: the truncated average of each pair.
    clip.SeekToBeginning();
    std::vector<int16_t> mono = ReadAll(clip, 1);
    ASSERT_EQ(mono.size(), stereo.size() / 2);
    for (size_t i = 0; i < mono.size(); i += 997) {
        EXPECT_EQ(mono[i], static_cast<int16_t>((stereo[2 * i] + stereo[2 * i + 1]) / 2)) << i;
    }

    // The range's volume effect applies on the way out, never to the store.
    std::vector<int16_t> loud = MakePcm(990, 1, [](int i) { return i % 2 ? 20001 : -20001; });
    LxAudioClip halved(store, StoreClip(store, loud, 1, 0.5f));
    EXPECT_EQ(ReadAll(halved, 1), MakePcm(990, 1, [](int i) { return i % 2 ? 10000 : -10000; }));
}

TEST(AudioClip, ComparesItselfWithAChunkStream) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> pcm = MakeRamp(8820, 1, 9);
    LxAudioClip clip(store, StoreClip(store, pcm, 1));
    // The stream's whole length, chunk headers included, must equal the clip's
    // byte count; the chunk data is compared with the clip from its start.
    auto chunk = [&](int n, int flip) {
        LxMemoryStream stream;
        stream.WriteInt32(n);
        stream.WriteInt32(1);
        stream.WriteInt32(44100);
        stream.WriteInt32(16);
        std::vector<unsigned char> bytes(Bytes(pcm), Bytes(pcm) + std::max(n, 0));
        if (flip >= 0) bytes[static_cast<size_t>(flip)] ^= 1;
        stream.Write(bytes.data(), static_cast<int>(bytes.size()));
        return stream;
    };
    LxMemoryStream same = chunk(17640 - 16, -1);
    EXPECT_TRUE(clip.IsRawDataSameAs(&same));
    LxMemoryStream changed = chunk(17640 - 16, 17000);
    EXPECT_FALSE(clip.IsRawDataSameAs(&changed));
    LxMemoryStream shorter = chunk(17640 - 20, -1);
    EXPECT_FALSE(clip.IsRawDataSameAs(&shorter));
}

TEST(AudioClip, CopiesAClipOfAnotherStorePageByPage) {
    TempDir a, b;
    LxAudioFile source(a.Dir());
    LxAudioFile target(b.Dir());
    std::vector<int16_t> pcm = MakeRamp(2 * 44100 + 441, 2, 11);
    LxAudioClip original(source, StoreClip(source, pcm, 2, 0.25f));
    int unrelated = -1;
    target.AppendSilentPage(100, 1, 44100, 16, unrelated);  // page 180 of the target
    LxAudioClip copy(target, -1);
    copy.AppendPCMDataFromAClipInsideAnotherAudioFile(original);
    ASSERT_EQ(copy.GetPageRanges().size(), 1u);
    // 441 frames at the end were rounded down to whole 180-byte blocks: 1620 bytes.
    EXPECT_EQ(copy.GetPageRanges()[0], LxPageRange(&target, LxAudioVolumeEffect(0.25f, 0, 1), 216, 0, 288, 1620));
    original.SeekToBeginning();
    copy.SeekToBeginning();
    EXPECT_EQ(ReadAll(copy, 2), ReadAll(original, 2));
}

TEST(AudioClip, DamagedRangesLoadAndReadSafely) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    std::vector<int16_t> pcm = MakeRamp(4410, 1, 2);
    int good = StoreClip(store, pcm, 1);
    // Ranges no store can hold: pages past "pcm.lxa", negative offsets, an end
    // before the start, offsets past the page.
    LxAudioClip bad(store);
    bad.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 36000, 0, 36036, 100));
    bad.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 180, -100, 180, 500));
    bad.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 180, 400, 180, 200));
    bad.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), 180, 0, 180, 900000));
    bad.AppendPageRange(LxAudioClip(store, good).GetPageRanges()[0]);
    AssertRecorder recorder;
    LxAudioClip loaded(store, bad.WriteToAudioFile());
    EXPECT_EQ(loaded.GetPageRanges().size(), 5u);
    EXPECT_EQ(loaded.WorthInFrames(), 4410);  // only the intact range counts
    EXPECT_EQ(ReadAll(loaded, 2).size(), 2 * pcm.size());
    EXPECT_GT(recorder.Count(), 0u);
    for (const AssertReport& r : recorder.Reports()) EXPECT_EQ(r.sourceFile, "source/components/audiocore/LxPageRange");
}
