#pragma once
// An advisory lock on a file, held through an open handle: flock on POSIX,
// LockFileEx on Windows. The lock goes with the handle, so a process that ends
// (however it ends) releases every lock it held; a lock that is free therefore
// means that nobody is using what the file guards.
//
// A lock is exclusive (one holder) or shared (any number of shared holders,
// and no exclusive one): readers share, a writer holds alone.
#include "LxFile.h"

class LXPUBLIC_API LxFileLock {
public:
    enum class Mode { kExclusive, kShared };
    // What LockWhatIsAt did.
    enum class Result {
        kLocked,       // the lock is held
        kBusy,         // another handle holds it in a way that conflicts
        kUnavailable,  // nothing to lock: the path is missing or cannot be opened
    };

    LxFileLock() = default;
    // Releases the lock.
    ~LxFileLock();
    LxFileLock(const LxFileLock&) = delete;
    LxFileLock& operator=(const LxFileLock&) = delete;

    // Opens file (creating it when missing) and takes the lock without waiting.
    // False when another handle holds it in a conflicting mode (in this process
    // or another), or when the file cannot be opened; nothing is held then.
    bool TryLock(const LxFile& file, Mode mode = Mode::kExclusive);

    // Takes, without waiting, a lock that stands for whatever file or directory
    // is at path now, for code that replaces what is at path by renaming a new
    // one over it (an atomic save).
    //  - POSIX: the file or directory itself, opened for reading; once locked,
    //    it is checked to be still the one at path (a rename may have put a new
    //    one there meanwhile), and the lock is taken again if not, a few times.
    //  - Windows: a directory cannot be locked and a locked file cannot be
    //    renamed over, so the lock is on the first byte of a hidden lock file
    //    beside it, ".NAME.lock", made when missing and left in place. A rename
    //    over path keeps that lock file, so while this object holds a lock,
    //    calling this again keeps it and returns kLocked.
    // A lock this object already holds stays held until the new one is taken,
    // and stays held when none is (kBusy, kUnavailable): a caller that retakes
    // its lock after replacing the file never leaves a moment unlocked.
    Result LockWhatIsAt(const LxFile& path, Mode mode);

    void Unlock();
    bool IsLocked() const;

    // Whether some handle holds the lock on file now, in either mode. A missing
    // file is not held.
    static bool IsHeld(const LxFile& file);

private:
#if defined(_WIN32)
    void* handle = nullptr;
#else
    int fd = -1;
#endif
};
