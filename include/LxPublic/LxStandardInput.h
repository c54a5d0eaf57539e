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
    // Waits at most timeoutMilliseconds for input and reads what has come, up
    // to size bytes, without waiting for more: a loop that does other work
    // between keystrokes. Returns the bytes read; 0 when nothing came in time
    // (or a signal cut the wait short); -1 at the end of the input or on an
    // error, after which it is not worth waiting on again. Windows has no
    // wait on a console or a pipe alike: there it only waits the time, and
    // returns 0.
    static int ReadWithin(void* buffer, int size, int timeoutMilliseconds);

private:
    // Stops the C library from translating line ends on standard input
    // (Windows text mode); nothing on POSIX.
    static void UseBinaryMode();
};
