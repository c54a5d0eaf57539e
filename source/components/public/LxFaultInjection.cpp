#include "LxPublic/LxFaultInjection.h"

#include <algorithm>
#include <atomic>

namespace {

std::atomic<bool> active{false};
std::atomic<int64_t> counts[LxFaultInjection::kOperationCount];
std::atomic<int64_t> failAt[LxFaultInjection::kOperationCount];
std::atomic<int64_t> diskSpace{-1};
std::atomic<int64_t> injected{0};

}  // namespace

void LxFaultInjection::FailNth(Operation op, int64_t n) {
    counts[op] = 0;
    failAt[op] = n;
    active = true;
}

int64_t LxFaultInjection::GetDiskSpace() { return diskSpace.load(); }

void LxFaultInjection::SetDiskSpace(int64_t bytes) {
    diskSpace = bytes;
    if (bytes >= 0) active = true;
}

void LxFaultInjection::StartCounting() { active = true; }

void LxFaultInjection::Reset() {
    active = false;
    for (int i = 0; i < kOperationCount; ++i) {
        counts[i] = 0;
        failAt[i] = 0;
    }
    diskSpace = -1;
    injected = 0;
}

int64_t LxFaultInjection::Count(Operation op) { return counts[op]; }

int64_t LxFaultInjection::Injected() { return injected; }

bool LxFaultInjection::ShouldFail(Operation op) {
    if (!active.load(std::memory_order_relaxed)) return false;
    const int64_t n = ++counts[op];
    if (failAt[op] != 0 && n == failAt[op]) {
        ++injected;
        return true;
    }
    return false;
}

int64_t LxFaultInjection::AllowDiskBytes(int64_t bytes) {
    if (!active.load(std::memory_order_relaxed) || bytes <= 0) return bytes;
    int64_t space = diskSpace.load();
    while (space >= 0) {
        const int64_t allowed = std::min(space, bytes);
        if (diskSpace.compare_exchange_weak(space, space - allowed)) {
            if (allowed < bytes) ++injected;
            return allowed;
        }
    }
    return bytes;
}
