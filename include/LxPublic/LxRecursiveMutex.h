#pragma once
// A mutex that the owning thread may lock again. Lock it through LxRecursiveLock.
#include <mutex>
#include "LxPublicExport.h"

class LXPUBLIC_API LxRecursiveMutex {
public:
    LxRecursiveMutex() = default;
    LxRecursiveMutex(const LxRecursiveMutex&) = delete;
    LxRecursiveMutex& operator=(const LxRecursiveMutex&) = delete;

    void Lock() { mutex_.lock(); }
    void Unlock() { mutex_.unlock(); }
    bool TryLock() { return mutex_.try_lock(); }

private:
    std::recursive_mutex mutex_;
};
