#pragma once
// An exclusive, advisory lock on a file, held through an open handle: flock on
// POSIX, LockFileEx on Windows. The lock goes with the handle, so a process
// that ends (however it ends) releases every lock it held; a lock that is free
// therefore means that nobody is using what the file guards.
#include "LxFile.h"

class LXPUBLIC_API LxFileLock {
public:
    LxFileLock() = default;
    // Releases the lock.
    ~LxFileLock();
    LxFileLock(const LxFileLock&) = delete;
    LxFileLock& operator=(const LxFileLock&) = delete;

    // Opens file (creating it when missing) and takes the lock without waiting.
    // False when another handle holds it (in this process or another), or when
    // the file cannot be opened; nothing is held then.
    bool TryLock(const LxFile& file);
    void Unlock();
    bool IsLocked() const;

    // Whether some handle holds the lock on file now. A missing file is not held.
    static bool IsHeld(const LxFile& file);

private:
#if defined(_WIN32)
    void* handle_ = nullptr;
#else
    int fd_ = -1;
#endif
};
