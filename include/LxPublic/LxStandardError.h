#pragma once
// The process's standard error, where a command-line host draws progress and
// level meters for the user.
#include "LxPublicExport.h"

class LXPUBLIC_API LxStandardError {
public:
    // Whether standard error is a terminal: a user watches it, and a line
    // redrawn in place (a carriage return) shows as one changing line. A file
    // or a pipe gets finished lines instead.
    static bool IsTerminal();
};
