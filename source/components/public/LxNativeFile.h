#pragma once
// The operating system's file handle, with positional reads and writes. The one
// place where file I/O meets the OS: LxNativeFilePosix.cpp and
// LxNativeFileWindows.cpp implement it. Buffering is LxFileStream's business.
#include <cstdint>
#include "LxPublic/LxFile.h"

class LxNativeFile {
public:
    enum OpenMode {
        kOpenRead,        // existing file, read only
        kOpenReadWrite,   // existing file as it is, or a new empty one
        kOpenTruncate,    // new or emptied file, read and write
    };

    LxNativeFile() = default;
    ~LxNativeFile();
    LxNativeFile(const LxNativeFile&) = delete;
    LxNativeFile& operator=(const LxNativeFile&) = delete;

    bool Open(const LxFile& file, OpenMode mode);
    bool IsOpen() const;
    // Each returns the bytes transferred (short only at the end of the file or on error).
    int64_t ReadAt(int64_t offset, void* buffer, int64_t bytes);
    int64_t WriteAt(int64_t offset, const void* buffer, int64_t bytes);
    int64_t Size();
    bool Truncate(int64_t size);
    bool Sync();
    void Close();

private:
#if defined(_WIN32)
    void* handle = nullptr;
#else
    int fd = -1;
#endif
};
