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
    // Copies bytes from offset of this file to targetOffset of target, inside
    // the kernel where the system can (Linux: copy_file_range), else through a
    // buffer; returns the bytes copied (short at the end of this file or when
    // a write fails).
    int64_t CopyTo(LxNativeFile& target, int64_t offset, int64_t targetOffset, int64_t bytes);
    // Starts writing the given span to the disk without waiting for it (Linux:
    // sync_file_range), so that a later Sync finds it done; elsewhere nothing.
    void StartWriteBack(int64_t offset, int64_t bytes);
    bool Truncate(int64_t size);
    bool Sync();
    void Close();

private:
    // The portable half of CopyTo: through a buffer, with ReadAt and WriteAt.
    int64_t CopyThroughBuffer(LxNativeFile& target, int64_t offset, int64_t targetOffset, int64_t bytes);

#if defined(_WIN32)
    void* handle = nullptr;
#else
    int fd = -1;
#endif
};
