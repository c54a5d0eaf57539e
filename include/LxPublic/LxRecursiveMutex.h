#pragma once
// A mutex that the owning thread may lock again. Lock it through LxRecursiveLock.
#include <mutex>
#include "LxPublicExport.h"

class LXPUBLIC_API LxRecursiveMutex {
public:
    LxRecursiveMutex() = default;
    LxRecursiveMutex(const LxRecursiveMutex&) = delete;
    LxRecursiveMutex& operator=(const LxRecursiveMutex&) = delete;

    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
    bool TryLock() { return mutex.try_lock(); }

private:
    std::recursive_mutex mutex;
};
