// The assertion and exception handlers given reports without any text; file
// locks between two holders; directories swapped in one step.
#include <gtest/gtest.h>

#include <string>
#include "AssertRecorder.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFileLock.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {
std::string gLastWhat;
void RecordException(const char* what, const char* thread) { gLastWhat = std::string(thread) + ": " + what; }
}  // namespace

TEST(PlatformBasics, HandlersTakeReportsWithoutText) {
    {
        AssertRecorder recorder;
        LxAssertFailed(nullptr, nullptr, 7);
        ExpectSingleReport(recorder, "", "", 7);
    }
    LxExceptionHandler previous = LxExceptionUtils::SetExceptionHandler(&RecordException);
    LxExceptionUtils::HandleException(nullptr, "reader");
    LxExceptionUtils::SetExceptionHandler(previous);
    EXPECT_EQ(gLastWhat, "reader: unknown exception");
}

// Two holders of one lock, each way it can be taken: readers share, a writer
// holds alone, and a lock on what is at a path survives a rename over it.
TEST(PlatformBasics, FileLocksBetweenTwoHolders) {
    using Mode = LxFileLock::Mode;
    using Result = LxFileLock::Result;
    TempDir temp;
    const LxFile file = temp.Child("project.lxp");
    WriteFileBytes(file, {'o', 'l', 'd'});
    const LxFile folder = temp.Child("folder");
    ASSERT_TRUE(folder.CreateDirectories());

    struct Row {
        Mode first, second;
        bool secondGetsIt;
    };
    const Row rows[] = {
        {Mode::kShared, Mode::kShared, true},
        {Mode::kShared, Mode::kExclusive, false},
        {Mode::kExclusive, Mode::kShared, false},
        {Mode::kExclusive, Mode::kExclusive, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "first " << (row.first == Mode::kShared ? "shared" : "exclusive")
                                        << ", second " << (row.second == Mode::kShared ? "shared" : "exclusive"));
        {
            LxFileLock a, b;
            ASSERT_TRUE(a.TryLock(temp.Child("plain.lock"), row.first));
            EXPECT_EQ(b.TryLock(temp.Child("plain.lock"), row.second), row.secondGetsIt);
            EXPECT_EQ(b.IsLocked(), row.secondGetsIt);
            EXPECT_TRUE(LxFileLock::IsHeld(temp.Child("plain.lock")));
        }
        EXPECT_FALSE(LxFileLock::IsHeld(temp.Child("plain.lock")));
        for (const LxFile& target : {file, folder}) {
            LxFileLock a, b;
            ASSERT_EQ(a.LockWhatIsAt(target, row.first), Result::kLocked);
            EXPECT_EQ(b.LockWhatIsAt(target, row.second), row.secondGetsIt ? Result::kLocked : Result::kBusy);
            EXPECT_EQ(b.IsLocked(), row.secondGetsIt);
        }
    }

    // A save renames a new file over the locked one; the holder takes the lock
    // of what is there now and keeps others out throughout.
    LxFileLock holder, other;
    ASSERT_EQ(holder.LockWhatIsAt(file, Mode::kExclusive), Result::kLocked);
    const LxFile saved = temp.Child("saved.lxp");
    WriteFileBytes(saved, {'n', 'e', 'w'});
    ASSERT_TRUE(saved.RenameTo(file));
    EXPECT_EQ(holder.LockWhatIsAt(file, Mode::kExclusive), Result::kLocked);
    EXPECT_EQ(other.LockWhatIsAt(file, Mode::kShared), Result::kBusy);
    EXPECT_FALSE(other.IsLocked());
    holder.Unlock();
    EXPECT_EQ(other.LockWhatIsAt(file, Mode::kShared), Result::kLocked);
    EXPECT_EQ(LxFileLock().LockWhatIsAt(temp.Child("missing.lxp"), Mode::kShared), Result::kUnavailable);
}

// Two real directories swap names in one step where the system can (Linux);
// where it cannot, nothing changes.
TEST(PlatformBasics, ExchangeDirectoriesSwapsOrLeavesBoth) {
    TempDir temp;
    const LxFile a = temp.Child("a");
    const LxFile b = temp.Child("b");
    ASSERT_TRUE(a.CreateDirectories() && b.CreateDirectories());
    const std::vector<uint8_t> markA{'a'}, markB{'b'};
    WriteFileBytes(a.GetChild("marker"), markA);
    WriteFileBytes(b.GetChild("marker"), markB);
    const bool swapped = LxFileUtil::ExchangeDirectories(a, b);
#if defined(__linux__)
    EXPECT_TRUE(swapped);
#endif
    EXPECT_EQ(FileBytes(a.GetChild("marker")), swapped ? markB : markA);
    EXPECT_EQ(FileBytes(b.GetChild("marker")), swapped ? markA : markB);
    EXPECT_FALSE(LxFileUtil::ExchangeDirectories(a, temp.Child("missing")));
    EXPECT_EQ(FileBytes(a.GetChild("marker")), swapped ? markB : markA);
}
