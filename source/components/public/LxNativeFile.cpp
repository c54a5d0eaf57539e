#include "LxNativeFile.h"

#include <algorithm>
#include <vector>

int64_t LxNativeFile::CopyThroughBuffer(LxNativeFile& target, int64_t offset, int64_t targetOffset, int64_t bytes) {
    constexpr int64_t kBlockBytes = 1 << 20;
    std::vector<unsigned char> block(static_cast<size_t>(std::clamp<int64_t>(bytes, 0, kBlockBytes)));
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
