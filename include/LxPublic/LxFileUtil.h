#pragma once
// File-system helpers beyond one file's own queries: directories, copies,
// links, permissions, devices.
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
    // (which is created when missing, private as well), readable and writable by
    // its owner only (0700 on POSIX). Returns an LxFile with an empty path when it
    // cannot be made.
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

    // Whether a and b name the same file or directory: the same device and file
    // number, so also through symbolic links and hard links. False when either
    // is missing.
    static bool IsSameFile(const LxFile& a, const LxFile& b);
    // The path that file leads to once the symbolic links of its last component
    // are followed (a link to a link to the end; a relative link from the folder
    // of the link). file itself when it is no link; the missing target of a
    // dangling link; file itself when the links go round in a circle.
    static LxFile ResolveSymbolicLinks(const LxFile& file);

    // --- implemented per system (LxFileUtilPosix.cpp, LxFileUtilWindows.cpp) -----
    // The folder that the system names for temporary files, whether or not it
    // exists: TMPDIR, TMP, TEMP or TEMPDIR, else /tmp (GetTempPath on Windows).
    // The system temporary directory of CreateUniqueTempDir is this folder.
    static LxString GetTemporaryDirectoryName();
    // A character or block device, a named pipe or a socket (on Windows a device
    // such as NUL or CON, or a pipe): something that is written to, and that a
    // rename must never replace.
    static bool IsDeviceOrPipe(const LxFile& file);
    // Whether this process may create files in directory (false when it is missing).
    static bool IsWritableDirectory(const LxFile& directory);
    // A file or directory that its owner has marked read-only: no write
    // permission for anyone, or none for this process (POSIX); the read-only
    // attribute of a file (Windows). False when it is missing.
    static bool IsReadOnly(const LxFile& file);
    // Gives to the permission bits and the owner of from: on POSIX the mode,
    // then the user and group (the group alone when this process may not give
    // the file away); nothing on Windows, where a new file takes its folder's
    // access rules. True when everything could be copied.
    static bool CopyOwnerAndMode(const LxFile& from, const LxFile& to);
    // Writes the bytes of the regular file source into target in one pass from
    // its start, opening target as it is (no creation, no truncation, no
    // seeking): the way a device or a pipe is written. True when all were written.
    static bool CopyFileIntoDevice(const LxFile& source, const LxFile& target);
    // Makes the names made, renamed or removed in directory (an empty path: the
    // current directory) survive a power cut: fsync of the directory on POSIX.
    // Windows writes a rename through by itself, and this does nothing there.
    // False when the directory could not be synced.
    static bool SyncDirectory(const LxFile& directory);
    // Swaps two existing directories (or files) in one step, so that at no
    // moment is either name missing: renameat2 with RENAME_EXCHANGE on Linux.
    // False, with nothing changed, where the system or the file system cannot
    // (then two renames are the caller's fallback).
    static bool ExchangeDirectories(const LxFile& a, const LxFile& b);
    // Whether a file may be renamed over while this process holds it open for
    // reading, and the reader goes on reading the old file: true on POSIX;
    // false on Windows, where the rename would be refused.
    static bool CanRenameOverOpenFile();
};
