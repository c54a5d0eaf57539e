#pragma once
// Monotonic time since the process started, in 100-nanosecond units.
#include <cstdint>
#include "LxPublicExport.h"

LXPUBLIC_API uint64_t LxGetTickCountSinceAppStartTimeNS100();
