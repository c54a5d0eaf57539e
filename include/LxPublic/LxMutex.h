#pragma once
// A plain (non-recursive) mutex. Lock it through LxLock.
#include <mutex>
#include "LxPublicExport.h"

class LXPUBLIC_API LxMutex {
public:
    LxMutex() = default;
    LxMutex(const LxMutex&) = delete;
    LxMutex& operator=(const LxMutex&) = delete;

    void Lock() { mutex_.lock(); }
    void Unlock() { mutex_.unlock(); }
    bool TryLock() { return mutex_.try_lock(); }
    std::mutex& Native() { return mutex_; }

private:
    std::mutex mutex_;
};
