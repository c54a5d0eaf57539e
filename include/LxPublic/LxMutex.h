#pragma once
// A plain (non-recursive) mutex. Lock it through LxLock.
#include <mutex>
#include "LxPublicExport.h"

class LXPUBLIC_API LxMutex {
public:
    LxMutex() = default;
    LxMutex(const LxMutex&) = delete;
    LxMutex& operator=(const LxMutex&) = delete;

    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
    bool TryLock() { return mutex.try_lock(); }
    std::mutex& Native() { return mutex; }

private:
    std::mutex mutex;
};
