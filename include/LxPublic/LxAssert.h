#pragma once
// Library assertions. A failed check inside the engine reports itself through
// LxAssertFailed and then carries on with a neutral result: it never throws and
// never aborts. The report goes to one process-wide handler, which a host (or a
// test) may replace to log, count or inspect reports.
#include <cstdint>
#include "LxPublicExport.h"

using LxAssertHandler = void (*)(const char* message, const char* sourceFile, int line);

// Reports a failed check. message may be empty (an internal check with no text
// of its own); sourceFile names the reporting file without extension, e.g.
// "source/components/audiocore/LxAudioFile".
LXPUBLIC_API void LxAssertFailed(const char* message, const char* sourceFile, int line);

// Installs a handler and returns the previous one. Passing nullptr restores the
// default handler, which prints one line to stderr. Thread-safe.
LXPUBLIC_API LxAssertHandler LxSetAssertHandler(LxAssertHandler handler);

// Reports raised on the calling thread so far, whichever handler took them. An
// operation that must know whether a step of its own reported (without taking
// the reports from the host's handler) compares the count before and after.
LXPUBLIC_API int64_t LxAssertReportCount();
