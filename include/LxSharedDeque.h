#pragma once
// The queue between the two threads of a capture: producers append at the back
// and wake the consumer; one consumer takes from the front. The queue owns no
// items: whoever takes an item deletes it.
#include <deque>
#include "LxPublic/LxCondition.h"
#include "LxPublic/LxLock.h"
#include "LxPublic/LxMutex.h"

template <typename T>
class LxSharedDeque {
public:
    LxSharedDeque() = default;
    LxSharedDeque(const LxSharedDeque&) = delete;
    LxSharedDeque& operator=(const LxSharedDeque&) = delete;

    // Appends under the mutex and wakes every waiter.
    void PushBack(T item) {
        LxLock lock(mutex);
        queue.push_back(item);
        condition.notify_all();
    }

    size_t Size() {
        LxLock lock(mutex);
        return queue.size();
    }

    std::deque<T> queue;
    LxCondition condition;
    LxMutex mutex;
};
