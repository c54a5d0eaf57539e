// Strings, files and directories, the assertion handler and the exception handler.
#include <gtest/gtest.h>

#include <stdexcept>
#include "AssertRecorder.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxLCException.h"
#include "LxPublic/LxStreamUtil.h"
#include "TempDir.h"

TEST(PlatformBasics, StringAppendsNumbers) {
    LxString name("raw.lxa");
    name.AppendNumber(0);
    EXPECT_EQ(name, LxString("raw.lxa0"));
    LxString other("x");
    other.AppendNumber(-12).AppendNumber(2147483647);
    EXPECT_STREQ(other.c_str(), "x-122147483647");
}

TEST(PlatformBasics, TempDirectoriesAreUniqueAndDeletedWithTheirContents) {
    LxFile a = LxFileUtil::CreateUniqueTempDir("AudCntlr");
    LxFile b = LxFileUtil::CreateUniqueTempDir("AudCntlr");
    ASSERT_FALSE(a.GetPath().IsEmpty());
    EXPECT_NE(a.GetPath(), b.GetPath());
    EXPECT_EQ(a.GetName().str().rfind("AudCntlr", 0), 0u);
    EXPECT_TRUE(a.IsDirectory());
    LxFile nested = a.GetChild("compact");
    EXPECT_TRUE(nested.CreateDirectories());
    {
        auto s = LxStreamUtil::CreateFileStreamReadWrite(nested.GetChild("raw.lxa"), 3, 0x3f3f3f3f, 0x3f3f3f3f);
        ASSERT_NE(s, nullptr);
        s->SetWriting(true);
        int32_t v = 1;
        s->Xfer(v);
    }
    EXPECT_EQ(nested.GetChild("raw.lxa").GetLength(), 4);
    EXPECT_TRUE(LxFileUtil::DeleteDirectory(a));
    EXPECT_FALSE(a.Exists());
    EXPECT_TRUE(LxFileUtil::DeleteDirectory(b));
    EXPECT_EQ(nested.GetChild("raw.lxa").GetLength(), -1);
}

TEST(PlatformBasics, AssertHandlerIsReplaceableAndRestored) {
    {
        AssertRecorder recorder;
        LxAssertFailed("clip ID not found in file", "source/components/audiocore/LxAudioFile", 42);
        LxAssertFailed(nullptr, nullptr, 7);
        auto reports = recorder.Reports();
        ASSERT_EQ(reports.size(), 2u);
        EXPECT_EQ(reports[0].message, "clip ID not found in file");
        EXPECT_EQ(reports[0].sourceFile, "source/components/audiocore/LxAudioFile");
        EXPECT_EQ(reports[0].line, 42);
        EXPECT_EQ(reports[1].message, "");
        EXPECT_EQ(reports[1].sourceFile, "");
    }
    // The recorder put the previous handler back; a second recorder sees only its own reports.
    AssertRecorder again;
    EXPECT_EQ(again.Count(), 0u);
}

namespace {
std::string gLastWhat;
void RecordException(const char* what, const char* thread) { gLastWhat = std::string(thread) + ": " + what; }
}  // namespace

TEST(PlatformBasics, ExceptionsReachTheHandlerWithTheirText) {
    LxExceptionHandler previous = LxExceptionUtils::SetExceptionHandler(&RecordException);
    try {
        throw LxLCException("kLxErrorInternal", "source/components/audiocore/LxAudioController", 145);
    } catch (...) {
        LxExceptionUtils::HandleException(std::current_exception(), "writer");
    }
    EXPECT_EQ(gLastWhat, "writer: kLxErrorInternal");
    LxExceptionUtils::HandleException(nullptr, "reader");
    EXPECT_EQ(gLastWhat, "reader: unknown exception");
    LxExceptionUtils::SetExceptionHandler(previous);
}
