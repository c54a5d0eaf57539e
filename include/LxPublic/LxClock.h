#pragma once
// Monotonic time since the process started, in 100-nanosecond units; and wall
// clock times in the user's time zone.
#include <cstdint>
#include <ctime>
#include "LxPublicExport.h"

LXPUBLIC_API uint64_t LxGetTickCountSinceAppStartTimeNS100();

// Fills local with the calendar time, in the system's time zone, of a moment
// given in milliseconds since 1970-01-01 UTC (thread-safe, unlike
// std::localtime). False when the system cannot convert it.
LXPUBLIC_API bool LxGetLocalTime(int64_t millisecondsSince1970, std::tm& local);
