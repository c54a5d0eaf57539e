// LxAudioController::Verify on stores whose members load (the plain load takes
// them as they are) but hold what no store can: one case per finding, each a
// saved store damaged in one member.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"

namespace {

// The five members of a saved store: raw, enc, pcm, clip, map.
using Members = std::vector<std::vector<uint8_t>>;
constexpr size_t kPageTable = 2;
constexpr size_t kClips = 3;

// A store with one clip of one raw page (page 180), saved as one stream and
// split into its members.
Members SavedStore() {
    LxAudioController controller;
    StoreClip(controller, MakeRamp(1000, 1), 1);
    LxMemoryStream stream;
    EXPECT_TRUE(controller.WriteTo(&stream));
    const std::vector<uint8_t>& bytes = stream.GetBytes();
    Members members;
    size_t at = 0;
    for (int i = 0; i < 5; ++i) {
        const size_t length = static_cast<size_t>(ReadLe32(bytes, at));
        members.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at + 4),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at + 4 + length));
        at += 4 + length;
    }
    return members;
}

void PutLe32(std::vector<uint8_t>& bytes, size_t at, int32_t value) {
    const std::vector<uint8_t> le = Le32({value});
    std::copy(le.begin(), le.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace

TEST(StoreVerify, NamesTheFirstProblemAndRaisesNoReportOfItsOwn) {
    struct Case {
        const char* problem;
        std::function<void(Members&)> damage;
    };
    // The clip's record: range count, then startPage, startOffset, endPage,
    // endOffset, effect count, effect kind, ...
    const Case cases[] = {
        {"", [](Members&) {}},
        {"page table has a bad size", [](Members& m) { m[kPageTable].resize(m[kPageTable].size() - 4); }},
        {"page table has a bad size", [](Members& m) { m[kPageTable].resize(144); }},
        {"reserved silent page 72 is missing", [](Members& m) { PutLe32(m[kPageTable], 72, 1); }},
        {"clip 1 cannot be read", [](Members& m) { PutLe32(m[kClips], 24, 7); }},
        {"clip 1 refers to pages that do not exist",
         [](Members& m) {
             PutLe32(m[kClips], 4, 216);
             PutLe32(m[kClips], 12, 216);
         }},
    };
    const Members saved = SavedStore();
    for (const Case& c : cases) {
        Members members = saved;
        c.damage(members);
        std::vector<uint8_t> bytes;
        for (const std::vector<uint8_t>& member : members) {
            const std::vector<uint8_t> length = Le32({static_cast<int64_t>(member.size())});
            bytes.insert(bytes.end(), length.begin(), length.end());
            bytes.insert(bytes.end(), member.begin(), member.end());
        }
        LxMemoryStream stream(bytes);
        LxAudioController controller;
        ASSERT_TRUE(controller.ReadFrom(&stream)) << c.problem;
        AssertRecorder recorder;
        std::string problem = "not set";
        EXPECT_EQ(controller.Verify(problem), std::string(c.problem).empty()) << c.problem;
        EXPECT_EQ(problem, c.problem);
        for (const AssertReport& report : recorder.Reports())
            EXPECT_EQ(report.sourceFile.find("LxAudioController"), std::string::npos) << c.problem << ": " << report.message;
    }
}
