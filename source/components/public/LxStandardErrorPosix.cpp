#include "LxPublic/LxStandardError.h"

#include <unistd.h>

bool LxStandardError::IsTerminal() { return ::isatty(STDERR_FILENO) != 0; }
