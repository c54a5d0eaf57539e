#include "LxPublic/LxExceptionUtils.h"

#include "LxPublic/LxException.h"

#include <atomic>
#include <cstdio>

namespace {

void DefaultExceptionHandler(const char* what, const char* threadName) {
    std::fprintf(stderr, "LxException on thread %s: %s\n", threadName ? threadName : "?", what ? what : "?");
}

std::atomic<LxExceptionHandler> gHandler{&DefaultExceptionHandler};

}  // namespace

void LxExceptionUtils::HandleException(const std::exception_ptr& e, const char* threadName) {
    LxExceptionHandler handler = gHandler.load();
    if (!e) {
        handler("unknown exception", threadName);
        return;
    }
    try {
        std::rethrow_exception(e);
    } catch (const std::exception& ex) {
        handler(ex.what(), threadName);
    } catch (...) {
        handler("unknown exception", threadName);
    }
}

void LxExceptionUtils::HandleException(const LxException& e, const char* threadName) {
    gHandler.load()(e.what(), threadName);
}

LxExceptionHandler LxExceptionUtils::SetExceptionHandler(LxExceptionHandler handler) {
    return gHandler.exchange(handler ? handler : &DefaultExceptionHandler);
}
