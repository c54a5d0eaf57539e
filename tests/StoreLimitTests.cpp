// A store member holds at most 2^31 - 1 bytes (page records hold 32-bit
// positions): a page that would take one past that is refused whole, with a
// report naming the member, and nothing that appends pages stores a clip short
// of the audio it was given. The stores here are filled with holes: sparse
// member files that cost no disk.
#include <gtest/gtest.h>

#include <map>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

constexpr int kPage = 176400;  // a full page: two seconds of mono
constexpr int kMonoThumbnail = 3920;

struct Sizes {
    int members[5];
};

Sizes MemberSizes(LxAudioFile& store) {
    Sizes sizes{};
    store.GetMemberSizes(sizes.members);
    return sizes;
}

void ExpectSameSizes(const Sizes& before, const Sizes& after) {
    for (int i = 0; i < 5; ++i) EXPECT_EQ(before.members[i], after.members[i]) << kStoreMembers[i];
}

}  // namespace

TEST(StoreLimit, APageThatWouldTakeAMemberPast2GiBIsRefusedWhole) {
    const std::vector<int16_t> sound = MakeRamp(kPage / 2, 1);
    const std::vector<int16_t> silence(kPage / 2, 0);
    struct Case {
        const char* name;
        int64_t raw, enc;
        const std::vector<int16_t>* pcm;
        const char* full;  // the member named in the refusal; null: the page is stored
    };
    const Case cases[] = {
        {"raw has room for the page exactly", kMemberLimit - kPage, 0, &sound, nullptr},
        {"raw is one byte short", kMemberLimit - kPage + 1, 0, &sound, "raw.lxa"},
        {"a silent page needs no raw room", kMemberLimit, 0, &silence, nullptr},
        {"enc is one byte short of the thumbnail", 0, kMemberLimit - kMonoThumbnail + 1, &sound, "enc.lxa"},
        {"enc has room for the thumbnail exactly", 0, kMemberLimit - kMonoThumbnail, &sound, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir tmp;
        WriteFillerStore(tmp.Dir(), c.raw, c.enc);
        LxAudioFile store(tmp.Dir());
        const Sizes before = MemberSizes(store);
        AssertRecorder reports;
        const int page = AppendPage(store, *c.pcm, 1);
        if (c.full == nullptr) {
            EXPECT_EQ(page, 180);
            EXPECT_EQ(reports.Count(), 0u);
            LxPCMData record;
            ASSERT_TRUE(store.ReadPageHeader(page, record));
            if (c.pcm == &sound) {
                EXPECT_EQ(record.dataRange.start, c.raw);  // positions stay exact up to the limit
                EXPECT_EQ(int64_t{record.thumbnailRange.end}, c.enc + kMonoThumbnail);
            }
            continue;
        }
        EXPECT_EQ(page, -1);
        ASSERT_EQ(reports.Count(), 1u);
        EXPECT_EQ(reports.Reports()[0].message, std::string("the store is full: ") + c.full + " would pass 2 GiB");
        EXPECT_EQ(reports.Reports()[0].sourceFile, "source/components/audiocore/LxMemberStream");
        ExpectSameSizes(before, MemberSizes(store));
        EXPECT_EQ(store.GetRoomRefusals(), 1);
    }
}

TEST(StoreLimit, RoomIsCountedInWholePagesOfTheFullestMember) {
    struct Case {
        int64_t raw, enc;
        int channels;
        int64_t room;
    };
    const Case cases[] = {
        {kMemberLimit - 3 * int64_t{kPage}, 0, 1, 3 * int64_t{kPage}},
        {kMemberLimit - 3 * int64_t{kPage} + 1, 0, 2, 2 * int64_t{kPage}},
        {0, kMemberLimit - 2 * kMonoThumbnail, 1, 2 * int64_t{kPage}},
        {0, kMemberLimit - 2 * kMonoThumbnail, 2, 4 * int64_t{kPage}},  // stereo thumbnails are half as long
        {kMemberLimit, 0, 1, 0},
    };
    for (const Case& c : cases) {
        TempDir tmp;
        WriteFillerStore(tmp.Dir(), c.raw, c.enc);
        LxAudioFile store(tmp.Dir());
        EXPECT_EQ(store.GetRoomForPCM(c.channels), c.room) << c.raw << " " << c.enc << " " << c.channels;
    }
}

TEST(StoreLimit, NothingStoresAClipShortOfTheAudioItWasGiven) {
    // Room for two pages: five seconds of mono need three.
    TempDir tmp;
    WriteFillerStore(tmp.Dir(), kMemberLimit - 2 * int64_t{kPage}, 0);
    LxAudioFile store(tmp.Dir());
    const std::vector<int16_t> pcm = MakeRamp(5 * 44100, 1);
    {
        AssertRecorder reports;
        LxAudioClip clip(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
        EXPECT_EQ(StoreClip(clip, pcm, 1), -1);
        EXPECT_TRUE(clip.HasLostAudio());
        EXPECT_GE(reports.Count(), 1u);
        std::list<int> ids;
        store.GetClipIDs(ids);
        EXPECT_TRUE(ids.empty());
    }

    // Copying between stores: a clip the target has no room for is not copied
    // short of its pages.
    TempDir sourceDir;
    LxAudioFile source(sourceDir.Dir());
    const int id = StoreClip(source, pcm, 1);
    ASSERT_GT(id, 0);
    AssertRecorder reports;
    std::map<int, int> idMap;
    store.AppendAudioFileFrom(source, idMap);
    EXPECT_EQ(idMap[id], -1);
    LxAudioClip copied(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
    LxAudioClip original(source, id, LX_AUDIO_CLIP_SOURCE_IMPORT);
    copied.AppendPCMDataFromAClipInsideAnotherAudioFile(original);
    EXPECT_TRUE(copied.HasLostAudio());
    EXPECT_GE(reports.Count(), 1u);
    EXPECT_EQ(reports.Reports()[0].message, "the store is full: raw.lxa would pass 2 GiB");
}

TEST(StoreLimit, CompressionLeavesAPageRawWhenEncHasNoRoom) {
    TempDir tmp;
    WriteFillerStore(tmp.Dir(), 0, kMemberLimit - 8000);  // room for a thumbnail, not for its Vorbis packets
    LxAudioFile store(tmp.Dir());
    const int id = StoreClip(store, MakeRamp(2 * 44100, 1), 1);
    ASSERT_GT(id, 0);
    const Sizes before = MemberSizes(store);
    AssertRecorder reports;
    EXPECT_EQ(store.CompressAllPages(nullptr), 0);
    LxPCMData record;
    ASSERT_TRUE(store.ReadPageHeader(180, record));
    EXPECT_EQ(record.codec, 1);
    ExpectSameSizes(before, MemberSizes(store));
    ASSERT_GE(reports.Count(), 1u);
    EXPECT_EQ(reports.Reports()[0].message, "the store is full: enc.lxa would pass 2 GiB");
}
