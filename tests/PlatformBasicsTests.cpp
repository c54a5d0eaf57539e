// The assertion and exception handlers given reports without any text.
#include <gtest/gtest.h>

#include <string>
#include "AssertRecorder.h"
#include "LxPublic/LxExceptionUtils.h"

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
