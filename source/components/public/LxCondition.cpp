#include "LxPublic/LxCondition.h"

#include <chrono>

bool LxCondition::Wait(LxLock& lock, int milliseconds) {
    return cv.wait_for(lock.Native(), std::chrono::milliseconds(milliseconds)) == std::cv_status::no_timeout;
}
