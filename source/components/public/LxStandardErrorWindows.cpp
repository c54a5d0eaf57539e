#include "LxPublic/LxStandardError.h"

#include <cstdio>
#include <io.h>

bool LxStandardError::IsTerminal() { return _isatty(_fileno(stderr)) != 0; }
