#include "LxPublic/LxFileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

LxFileLock::~LxFileLock() { Unlock(); }

bool LxFileLock::TryLock(const LxFile& file) {
    Unlock();
    int fd;
    do {
        fd = ::open(file.GetPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    // flock locks belong to the open file description: a second open of the
    // same file, even in this process, conflicts with this one.
    int rc;
    do {
        rc = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void LxFileLock::Unlock() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool LxFileLock::IsLocked() const { return fd_ >= 0; }

bool LxFileLock::IsHeld(const LxFile& file) {
    int fd = ::open(file.GetPath().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}
