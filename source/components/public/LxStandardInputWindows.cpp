// LxStandardInput's functions that differ between systems: the Windows ones.
#include "LxPublic/LxStandardInput.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <thread>

bool LxStandardInput::IsTerminal() { return _isatty(_fileno(stdin)) != 0; }

int LxStandardInput::ReadWithin(void*, int, int timeoutMilliseconds) {
    // A console handle is signalled by any console event (a mouse move, a
    // focus change), not only by typed lines: nothing is read here.
    if (timeoutMilliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(timeoutMilliseconds));
    return 0;
}

void LxStandardInput::UseBinaryMode() { _setmode(_fileno(stdin), _O_BINARY); }
