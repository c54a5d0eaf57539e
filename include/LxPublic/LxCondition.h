#pragma once
// A condition variable used with LxMutex and LxLock.
#include <condition_variable>
#include "LxLock.h"

class LXPUBLIC_API LxCondition {
public:
    LxCondition() = default;
    LxCondition(const LxCondition&) = delete;
    LxCondition& operator=(const LxCondition&) = delete;

    // Waits until signalled (spurious wake-ups possible: callers re-check their predicate).
    void Wait(LxLock& lock) { cv.wait(lock.Native()); }
    // Waits at most milliseconds; false when the time ran out.
    bool Wait(LxLock& lock, int milliseconds);
    void Signal() { cv.notify_one(); }
    void notify_one() { cv.notify_one(); }
    void notify_all() { cv.notify_all(); }

private:
    std::condition_variable cv;
};
