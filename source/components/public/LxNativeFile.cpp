#include "LxNativeFile.h"

#include <algorithm>
#include <vector>

int64_t LxNativeFile::CopyThroughBuffer(LxNativeFile& target, int64_t offset, int64_t targetOffset, int64_t bytes) {
    constexpr int64_t kBlockBytes = 1 << 20;
    // One buffer per thread for as long as it lives: a fresh one for every
    // call would be mapped, faulted in and unmapped again each time.
    thread_local std::vector<unsigned char> block;
    if (block.empty() && bytes > 0) block.resize(static_cast<size_t>(kBlockBytes));
    int64_t done = 0;
    while (done < bytes) {
        const int64_t got = ReadAt(offset + done, block.data(), std::min(kBlockBytes, bytes - done));
        if (got <= 0) break;
        const int64_t put = target.WriteAt(targetOffset + done, block.data(), got);
        if (put > 0) done += put;
        if (put != got) break;
    }
    return done;
}
