// Compaction: which pages survive, how pages and clips are renumbered, what the
// progress receiver hears, and the cases that leave the store alone.
#include <gtest/gtest.h>

#include <string>
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "PcmHelpers.h"
#include "ProgressRecorder.h"
#include "StoreAccess.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

// Stores a clip of `pages` full mono pages, each filled with its own value.
int StorePages(LxAudioFile& store, int pages, int value) {
    return StoreClip(store, MakePcm(88200 * pages, 1, [&](int i) { return value + i / 88200 + (i % 3); }), 1);
}

std::vector<int16_t> Audio(LxAudioFile& store, int clipID) { return ClipAudio(store, clipID, 1); }

}  // namespace

TEST(Compaction, DropsUnreachablePagesAndRenumbersLiveClips) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    int a = StorePages(store, 1, 100);   // page 180
    StorePages(store, 1, 200);           // page 216
    int c = StorePages(store, 2, 300);   // pages 252, 288
    std::vector<int16_t> audioA = Audio(store, a), audioC = Audio(store, c);
    std::list<int> live = {c, a};
    ProgressRecorder log;
    ASSERT_TRUE(store.Compact(live, &log));
    EXPECT_EQ(live, (std::list<int>{1, 2}));  // new IDs in list order
    EXPECT_EQ(MemberSizes(store)[2], 180 + 3 * 36);
    LxAudioClip newC(store, 1), newA(store, 2);
    EXPECT_EQ(newA.GetPageRanges()[0].startPage, 180);
    // 252 moved down by 36.
    EXPECT_EQ(std::make_pair(newC.GetPageRanges()[0].startPage, newC.GetPageRanges()[0].endPage), std::make_pair(216, 252));
    EXPECT_EQ(ReadAll(newA, 1), audioA);
    EXPECT_EQ(ReadAll(newC, 1), audioC);
    EXPECT_EQ(log.calls, (std::vector<std::string>{"begin kLxDiscoverUnreachAudio 3 0", "report 1", "report 2",
                                                   "report 3", "next kLxCompactingAudio 4", "report 1", "report 2",
                                                   "report 3", "report 4", "next kLxUpdateClips 2", "report 1",
                                                   "report 2", "end"}));
    // The member files are back in the store's directory, and the working
    // directory of the compaction is gone.
    EXPECT_EQ(tmp.Child("pcm.lxa").GetLength(), 180 + 3 * 36);
    EXPECT_FALSE(tmp.Child("compact").Exists());
}

TEST(Compaction, CasesThatChangeNothingOrEverything) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    int a = StorePages(store, 1, 100);
    int b = StorePages(store, 1, 200);
    // Every stored clip in use: nothing to gain.
    std::list<int> all = {a, b};
    EXPECT_FALSE(store.Compact(all, nullptr));
    EXPECT_EQ(all, (std::list<int>{a, b}));
    // Every page reachable through the live clips: nothing written.
    LxAudioClip both(store, -1);
    both.AppendClip(LxAudioClip(store, a));
    both.AppendClip(LxAudioClip(store, b));
    int c = both.WriteToAudioFile();
    std::list<int> one = {c};
    ProgressRecorder log;
    EXPECT_FALSE(store.Compact(one, &log));
    EXPECT_EQ(one, (std::list<int>{c}));
    EXPECT_EQ(log.calls.back(), "end");
    EXPECT_FALSE(tmp.Child("compact").GetChild("pcm.lxa").Exists());
    // A live ID the store does not know: false, the store as it was.
    StorePages(store, 1, 300);
    std::list<int> unknown = {a, 99};
    EXPECT_FALSE(store.Compact(unknown, nullptr));
    EXPECT_EQ(unknown, (std::list<int>{a, 99}));
    EXPECT_EQ(MemberSizes(store)[2], 180 + 3 * 36);
    // An empty live list empties the store down to its reserved silence.
    std::list<int> none;
    EXPECT_TRUE(store.Compact(none, nullptr));
    EXPECT_EQ(MemberSizes(store), (std::vector<int>{0, 0, 180, 0, 4}));
    EXPECT_FALSE(store.Compact(none, nullptr));  // already empty
}

TEST(Compaction, ThumbnailsFollowTheirPagesToTheNewIDs) {
    TempDir tmp;
    LxAudioFile store(tmp.Dir());
    int dropped = StorePages(store, 1, 100);  // 180
    int kept = StorePages(store, 2, 5000);    // 216, 252 -> 180, 216
    LxAudioClip before(store, kept);
    before.LoadThumbnail();  // holds the cache entries of pages 216 and 252
    std::vector<int> points;
    for (int n = 0; n < before.GetNumberOfFramesInThumbnail(); n += 97) points.push_back(before.GetNthFrameInThumbnail(n));
    LxAudioClip other(store, dropped);
    other.LoadThumbnail();  // an entry of a page that compaction drops, still in use
    std::list<int> live = {kept};
    ASSERT_TRUE(store.Compact(live, nullptr));
    // A fresh load after the swap reads the entries under their new page IDs.
    LxAudioClip after(store, live.front());
    after.LoadThumbnail();
    ASSERT_EQ(after.GetNumberOfFramesInThumbnail(), before.GetNumberOfFramesInThumbnail());
    std::vector<int> again;
    for (int n = 0; n < after.GetNumberOfFramesInThumbnail(); n += 97) again.push_back(after.GetNthFrameInThumbnail(n));
    EXPECT_EQ(again, points);
    // Clips that loaded before the swap still read their own points.
    EXPECT_EQ(before.GetNthFrameInThumbnail(0), points[0]);
    EXPECT_NE(other.GetNthFrameInThumbnail(0), 0);
}
