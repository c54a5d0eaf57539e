#include "LxPublic/LxAssert.h"

#include <atomic>
#include <cstdio>
#include "LxPublic/LxQuietReports.h"

namespace {

void DefaultAssertHandler(const char* message, const char* sourceFile, int line) {
    std::fprintf(stderr, "LxAssertFailed: %s (%s:%d)\n", (message && *message) ? message : "internal error",
                 sourceFile ? sourceFile : "?", line);
}

std::atomic<LxAssertHandler> gHandler{&DefaultAssertHandler};

thread_local int64_t tReportCount = 0;

}  // namespace

void LxAssertFailed(const char* message, const char* sourceFile, int line) {
    ++tReportCount;
    if (LxQuietReports::Active()) return;
    LxAssertHandler handler = gHandler.load();
    handler(message ? message : "", sourceFile ? sourceFile : "", line);
}

LxAssertHandler LxSetAssertHandler(LxAssertHandler handler) {
    LxAssertHandler previous = gHandler.exchange(handler ? handler : &DefaultAssertHandler);
    return previous;
}

int64_t LxAssertReportCount() { return tReportCount; }
