#pragma once
// The process's standard input as a source of bytes: what a shell pipes or
// redirects into a command.
#include <cstdint>
#include "LxFile.h"

class LXPUBLIC_API LxStandardInput {
public:
    // Whether standard input is a terminal: nothing was piped or redirected
    // into it, and reading it would wait for the user to type.
    static bool IsTerminal();
    // Reads standard input to its end, byte for byte (binary on Windows too),
    // into target, which is created or emptied. Returns the bytes written; -1
    // when reading or writing failed (target then holds what was written).
    static int64_t CopyTo(const LxFile& target);
};
