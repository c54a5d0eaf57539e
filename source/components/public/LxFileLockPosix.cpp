#include "LxPublic/LxFileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// flock locks belong to the open file description: a second open of the same
// file, even in this process, conflicts with this one.
bool FlockWithoutWaiting(int fd, LxFileLock::Mode mode) {
    const int operation = (mode == LxFileLock::Mode::kExclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    int rc;
    do {
        rc = ::flock(fd, operation);
    } while (rc != 0 && errno == EINTR);
    return rc == 0;
}

// Whether fd is still the file that path names (no rename has put another there).
bool StillAt(int fd, const char* path) {
    struct stat locked {}, current {};
    return ::fstat(fd, &locked) == 0 && ::stat(path, &current) == 0 && locked.st_ino == current.st_ino &&
           locked.st_dev == current.st_dev;
}

}  // namespace

LxFileLock::~LxFileLock() { Unlock(); }

bool LxFileLock::TryLock(const LxFile& file, Mode mode) {
    Unlock();
    int opened = OpenRetrying(file.GetPath().c_str(), O_RDWR | O_CREAT, 0600);
    if (opened < 0) return false;
    if (!FlockWithoutWaiting(opened, mode)) {
        ::close(opened);
        return false;
    }
    fd = opened;
    return true;
}

LxFileLock::Result LxFileLock::LockWhatIsAt(const LxFile& path, Mode mode) {
    const char* name = path.GetPath().c_str();
    // Each round that finds another file at path once locked is a rename that
    // came in between; a few rounds outlast any sequence of saves.
    for (int attempt = 0; attempt < 10; ++attempt) {
        int opened = OpenRetrying(name, O_RDONLY);
        if (opened < 0) return Result::kUnavailable;
        if (!FlockWithoutWaiting(opened, mode)) {
            ::close(opened);
            return Result::kBusy;
        }
        if (StillAt(opened, name)) {
            Unlock();
            fd = opened;
            return Result::kLocked;
        }
        ::close(opened);
    }
    return Result::kUnavailable;
}

void LxFileLock::Unlock() {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

bool LxFileLock::IsLocked() const { return fd >= 0; }

bool LxFileLock::IsHeld(const LxFile& file) {
    int probe = OpenRetrying(file.GetPath().c_str(), O_RDONLY);
    if (probe < 0) return false;
    bool held = ::flock(probe, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(probe);
    return held;
}
