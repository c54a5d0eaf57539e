#include "LxPublic/LxClock.h"

#include <chrono>

namespace {
const std::chrono::steady_clock::time_point gStart = std::chrono::steady_clock::now();
}

uint64_t LxGetTickCountSinceAppStartTimeNS100() {
    auto elapsed = std::chrono::steady_clock::now() - gStart;
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 100);
}
