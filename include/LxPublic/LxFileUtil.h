#pragma once
// File-system helpers that need more than one file.
#include "LxFile.h"

class LXPUBLIC_API LxFileUtil {
public:
    // Creates a new, empty directory named prefix + a unique part + suffix,
    // inside the system's temporary directory (or inside the current directory
    // when inSystemTemp is false). Returns an LxFile with an empty path when it
    // cannot be created.
    static LxFile CreateUniqueTempDir(const LxString& prefix, const LxString& suffix = "", bool inSystemTemp = true);
    // Deletes a directory, with everything in it when recursive is set (otherwise
    // only an empty one). True when it is gone afterwards.
    static bool DeleteDirectory(const LxFile& directory, bool recursive = true);
    // "/" on POSIX, "\\" on Windows.
    static LxString GetDirectorySeparator();
};
