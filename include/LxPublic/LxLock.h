#pragma once
// Scoped lock of an LxMutex: locked for the lifetime of the object. Unlock and
// Relock let a holder release the mutex for a slow step in the middle.
#include "LxMutex.h"

class LXPUBLIC_API LxLock {
public:
    explicit LxLock(LxMutex& mutex) : lock(mutex.Native()) {}
    LxLock(const LxLock&) = delete;
    LxLock& operator=(const LxLock&) = delete;

    void Unlock() { lock.unlock(); }
    void Relock() { lock.lock(); }
    std::unique_lock<std::mutex>& Native() { return lock; }

private:
    std::unique_lock<std::mutex> lock;
};
