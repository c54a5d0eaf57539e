#pragma once
// File-system helpers that need more than one file.
#include <cstdint>
#include <vector>
#include "LxFile.h"

class LXPUBLIC_API LxFileUtil {
public:
    // Creates a new, empty directory named prefix + a unique part + suffix,
    // inside the system's temporary directory (or inside the current directory
    // when inSystemTemp is false). Returns an LxFile with an empty path when it
    // cannot be created.
    static LxFile CreateUniqueTempDir(const LxString& prefix, const LxString& suffix = "", bool inSystemTemp = true);
    // Creates a new, empty directory named prefix + a unique part inside parent
    // (which is created when missing), readable and writable by its owner only
    // (0700 on POSIX). Returns an LxFile with an empty path when it cannot be made.
    static LxFile CreateUniquePrivateDir(const LxFile& parent, const LxString& prefix);
    // The directories directly inside directory, in name order; empty when it
    // cannot be listed.
    static std::vector<LxFile> ListDirectories(const LxFile& directory);
    // The files (not directories) directly inside directory whose names end in
    // suffix, in name order.
    static std::vector<LxFile> ListFiles(const LxFile& directory, const LxString& suffix);
    // Copies a regular file over target (replaced when it exists). True when done.
    static bool CopyFile(const LxFile& source, const LxFile& target);
    // Bytes that this user may still write on the file system that holds path;
    // -1 when it cannot be told.
    static int64_t GetAvailableDiskSpace(const LxFile& path);
    // Deletes a directory, with everything in it when recursive is set (otherwise
    // only an empty one). True when it is gone afterwards.
    static bool DeleteDirectory(const LxFile& directory, bool recursive = true);
    // "/" on POSIX, "\\" on Windows.
    static LxString GetDirectorySeparator();
};
