// LxStandardInput's functions that differ between systems: the POSIX ones.
#include "LxPublic/LxStandardInput.h"

#include <poll.h>
#include <unistd.h>

bool LxStandardInput::IsTerminal() { return ::isatty(STDIN_FILENO) != 0; }

int LxStandardInput::ReadWithin(void* buffer, int size, int timeoutMilliseconds) {
    pollfd in{STDIN_FILENO, POLLIN, 0};
    // Readable, or hung up (the end of a pipe): the read tells which.
    if (::poll(&in, 1, timeoutMilliseconds) <= 0) return 0;
    const ssize_t got = ::read(STDIN_FILENO, buffer, static_cast<size_t>(size > 0 ? size : 0));
    return got > 0 ? static_cast<int>(got) : -1;
}

void LxStandardInput::UseBinaryMode() {}
