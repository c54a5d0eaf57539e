#include "LxPublic/LxProcess.h"

#include <cerrno>
#include <signal.h>
#include <unistd.h>

int LxProcess::CurrentID() { return static_cast<int>(::getpid()); }

bool LxProcess::IsRunning(int processID) {
    // Signal 0 only asks whether the process exists; EPERM: it does, as
    // another user's.
    return processID > 0 && (::kill(processID, 0) == 0 || errno == EPERM);
}
