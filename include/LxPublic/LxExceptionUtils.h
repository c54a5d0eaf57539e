#pragma once
// The process-wide exception handler that worker threads hand every exception
// to instead of letting it escape the thread.
#include <exception>
#include "LxPublicExport.h"

using LxExceptionHandler = void (*)(const char* what, const char* threadName);

// Text of the fatal exception that stands in for a non-library exception.
constexpr const char* kLxExceptionMsgStr = "kLxExceptionMsgStr";

class LxException;

class LXPUBLIC_API LxExceptionUtils {
public:
    // Called at the start of a worker thread's body; kept for the thread's
    // bookkeeping (the handler itself is process-wide).
    static void InstallExceptionHandler() {}
    static void HandleException(const LxException& e, const char* threadName = "worker");
    // Calls the handler with e.what() (or "unknown exception" for a null pointer).
    static void HandleException(const std::exception_ptr& e, const char* threadName);
    // Installs a handler and returns the previous one; nullptr restores the
    // default, which prints one line to stderr.
    static LxExceptionHandler SetExceptionHandler(LxExceptionHandler handler);
};
