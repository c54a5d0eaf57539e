#pragma once
// Scoped lock of an LxRecursiveMutex. Unlock and Relock release and retake it in
// the middle of a scope (a slow step that must not hold the lock); the
// destructor unlocks only when the lock is held.
#include "LxRecursiveMutex.h"

class LXPUBLIC_API LxRecursiveLock {
public:
    explicit LxRecursiveLock(LxRecursiveMutex& toLock) : mutex(toLock) { mutex.Lock(); }
    ~LxRecursiveLock() { if (held) mutex.Unlock(); }
    LxRecursiveLock(const LxRecursiveLock&) = delete;
    LxRecursiveLock& operator=(const LxRecursiveLock&) = delete;

    void Unlock() { if (held) { held = false; mutex.Unlock(); } }
    void Relock() { if (!held) { mutex.Lock(); held = true; } }

private:
    LxRecursiveMutex& mutex;
    bool held = true;
};
