#pragma once
// File-system helpers that need more than one file.
#include "LxFile.h"

class LXPUBLIC_API LxFileUtil {
public:
    // Creates a new, empty directory with a unique name that starts with prefix,
    // inside the system's temporary directory. Returns an LxFile with an empty
    // path when it cannot be created.
    static LxFile CreateUniqueTempDir(const LxString& prefix);
    // Deletes a directory and everything in it. True when it is gone afterwards.
    static bool DeleteDirectory(const LxFile& directory);
    // "/" on POSIX, "\\" on Windows.
    static LxString GetDirectorySeparator();
};
