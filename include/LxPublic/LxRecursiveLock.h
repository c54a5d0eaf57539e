#pragma once
// Scoped lock of an LxRecursiveMutex. Unlock and Relock release and retake it in
// the middle of a scope (a slow step that must not hold the lock); the
// destructor unlocks only when the lock is held.
#include "LxRecursiveMutex.h"

class LXPUBLIC_API LxRecursiveLock {
public:
    explicit LxRecursiveLock(LxRecursiveMutex& mutex) : mutex_(mutex) { mutex_.Lock(); }
    ~LxRecursiveLock() { if (held_) mutex_.Unlock(); }
    LxRecursiveLock(const LxRecursiveLock&) = delete;
    LxRecursiveLock& operator=(const LxRecursiveLock&) = delete;

    void Unlock() { if (held_) { held_ = false; mutex_.Unlock(); } }
    void Relock() { if (!held_) { mutex_.Lock(); held_ = true; } }

private:
    LxRecursiveMutex& mutex_;
    bool held_ = true;
};
