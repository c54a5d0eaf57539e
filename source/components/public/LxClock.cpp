#include "LxPublic/LxClock.h"

#include <chrono>

namespace {
const std::chrono::steady_clock::time_point gStart = std::chrono::steady_clock::now();
}

uint64_t LxGetTickCountSinceAppStartTimeNS100() {
    auto elapsed = std::chrono::steady_clock::now() - gStart;
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 100);
}

bool LxGetLocalTime(int64_t millisecondsSince1970, std::tm& local) {
    const std::time_t seconds = static_cast<std::time_t>(millisecondsSince1970 / 1000);
    // The C library's thread-safe forms differ by name and argument order only.
#if defined(_WIN32)
    return localtime_s(&local, &seconds) == 0;
#else
    return localtime_r(&seconds, &local) != nullptr;
#endif
}
