#include "LxPublic/LxProcess.h"

#include "LxWindows.h"

int LxProcess::CurrentID() { return static_cast<int>(GetCurrentProcessId()); }

bool LxProcess::IsRunning(int processID) {
    if (processID <= 0) return false;
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(processID));
    // A process that may not be opened still exists.
    if (process == nullptr) return GetLastError() == ERROR_ACCESS_DENIED;
    // The handle of an ended process stays signalled until its last handle goes.
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}
