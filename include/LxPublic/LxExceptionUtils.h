#pragma once
// The process-wide exception handler that worker threads hand every exception
// to instead of letting it escape the thread.
#include <exception>
#include "LxPublicExport.h"

using LxExceptionHandler = void (*)(const char* what, const char* threadName);

class LXPUBLIC_API LxExceptionUtils {
public:
    // Calls the handler with e.what() (or "unknown exception" for a null pointer).
    static void HandleException(const std::exception_ptr& e, const char* threadName);
    // Installs a handler and returns the previous one; nullptr restores the
    // default, which prints one line to stderr.
    static LxExceptionHandler SetExceptionHandler(LxExceptionHandler handler);
};
