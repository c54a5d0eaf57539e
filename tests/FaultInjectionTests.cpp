// The disk letting the engine down: every read, write, seek or flush of the
// file streams failing in turn, and the disk filling up, while a project is
// recorded into, compressed, edited, compacted and saved. Nothing may crash,
// and the project saved before stays readable and plays as it did.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include "LxAudioController.h"
#include "LxAudioEditableClip.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFaultInjection.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

// Saves the project the way a host must: into a new file, flushed to disk,
// then renamed over the old one. The old file is kept when anything fails.
bool SaveAtomically(LxAudioController& controller, const LxFile& target) {
    LxFile fresh(target.GetPath() + ".new");
    bool ok;
    {
        auto out = LxStreamUtil::CreateFileStreamReadWrite(fresh, kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
        ok = out && controller.WriteTo(out.get()) && out->Sync();
    }
    ok = ok && fresh.RenameTo(target);
    if (!ok) fresh.Delete();
    return ok;
}

struct Project {
    std::vector<int16_t> first = MakeRamp(99990, 2, 1);   // three pages
    std::vector<int16_t> second = MakeRamp(50040, 1, 2);  // one page
};

// Record, compress, edit, compact and save, as a session would.
bool Session(const Project& p, const LxFile& saved) {
    LxAudioController controller;
    auto in = LxStreamUtil::CreateFileStreamRead(saved);
    if (!in || !controller.ReadFrom(in.get())) return false;
    in.reset();
    const int id = StoreClip(controller, p.second, 1);
    controller.CompressAllPages(nullptr);
    auto clip = controller.GetClip(1);
    LxAudioEditableClip editable(*clip);
    int n = 0;
    editable.Delete(100, 20000, n, false);
    const int edited = clip->WriteToAudioFile();
    std::list<int> keep{1, id, edited};
    controller.Compact(keep, nullptr);
    return SaveAtomically(controller, saved);
}

std::vector<int16_t> FirstClipOf(const LxFile& saved) {
    LxAudioController controller;
    auto in = LxStreamUtil::CreateFileStreamRead(saved);
    EXPECT_TRUE(in && controller.ReadFrom(in.get()));
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    for (int id : ids) {
        auto clip = controller.GetClip(id);
        ReadAll(*clip, 2);
    }
    auto clip = controller.GetClip(1);
    return ReadAll(*clip, 2);
}

// The saved project opens, every clip plays, and each page of the first clip
// plays either as recorded (the old project, or a page left uncompressed) or
// exactly as a session without faults compressed it: nothing in between.
void ExpectReadable(const Project& p, const std::vector<int16_t>& compressed, const LxFile& saved) {
    std::vector<int16_t> played = FirstClipOf(saved);
    ASSERT_EQ(played.size(), p.first.size());
    const size_t page = 88200;  // samples of one stereo page
    for (size_t at = 0; at < played.size(); at += page) {
        const size_t end = std::min(played.size(), at + page);
        const bool asRecorded = std::equal(played.begin() + at, played.begin() + end, p.first.begin() + at);
        const bool asCompressed = std::equal(played.begin() + at, played.begin() + end, compressed.begin() + at);
        ASSERT_TRUE(asRecorded || asCompressed) << "page at sample " << at;
    }
}

}  // namespace

TEST(FaultInjection, EveryFailingCallLeavesTheSavedProjectReadable) {
    Project p;
    TempDir tmp;
    const LxFile saved = tmp.Child("project.lxp");
    {
        LxAudioController controller;
        ASSERT_EQ(StoreClip(controller, p.first, 2), 1);
        ASSERT_TRUE(SaveAtomically(controller, saved));
    }
    const std::vector<uint8_t> original = FileBytes(saved);
    LxFaultInjection::StartCounting();
    ASSERT_TRUE(Session(p, saved));
    int64_t calls[LxFaultInjection::kOperationCount];
    for (int op = 0; op < LxFaultInjection::kOperationCount; ++op) {
        calls[op] = LxFaultInjection::Count(static_cast<LxFaultInjection::Operation>(op));
    }
    LxFaultInjection::Reset();
    const std::vector<int16_t> compressed = FirstClipOf(saved);
    ASSERT_NE(compressed, p.first);

    LxSetAssertHandler([](const char*, const char*, int) {});  // damaged writes report plenty
    int failedSaves = 0, cases = 0;
    auto run = [&](const std::function<void()>& arm) {
        WriteFileBytes(saved, original);
        arm();
        failedSaves += Session(p, saved) ? 0 : 1;
        LxFaultInjection::Reset();
        ExpectReadable(p, compressed, saved);
        ++cases;
    };
    for (int op = 0; op < LxFaultInjection::kOperationCount; ++op) {
        ASSERT_GT(calls[op], 0) << op;
        // The first 25 calls (opening the project), then 25 more spread over the rest.
        std::vector<int64_t> nths;
        for (int64_t n = 1; n <= std::min<int64_t>(25, calls[op]); ++n) nths.push_back(n);
        for (int64_t k = 1; k <= 25 && calls[op] > 25; ++k) nths.push_back(25 + k * (calls[op] - 25) / 25);
        for (int64_t n : nths) {
            SCOPED_TRACE(testing::Message() << "operation " << op << ", call " << n << " of " << calls[op]);
            run([&] { LxFaultInjection::FailNth(static_cast<LxFaultInjection::Operation>(op), n); });
        }
    }
    for (int64_t space = 0; space < 4000000; space = space * 2 + 4096) {
        SCOPED_TRACE(testing::Message() << "disk full after " << space << " bytes");
        run([&] { LxFaultInjection::SetDiskSpace(space); });
    }
    LxSetAssertHandler(nullptr);
    std::printf("%d fault cases, %d saves refused\n", cases, failedSaves);
    EXPECT_GT(failedSaves, 0);
}
