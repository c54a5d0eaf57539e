#include "LxPublic/LxMemoryStream.h"

#include <algorithm>
#include <cstring>

int LxMemoryStream::Read(void* buffer, int count) {
    if (!open || count <= 0 || position >= GetLength()) return 0;
    int64_t n = std::min<int64_t>(count, GetLength() - position);
    std::memcpy(buffer, bytes.data() + position, static_cast<size_t>(n));
    position += n;
    return static_cast<int>(n);
}

int LxMemoryStream::Write(const void* buffer, int count) {
    if (!open || count <= 0) return 0;
    size_t end = static_cast<size_t>(position) + static_cast<size_t>(count);
    if (end > bytes.size()) bytes.resize(end);
    std::memcpy(bytes.data() + position, buffer, static_cast<size_t>(count));
    position = static_cast<int64_t>(end);
    return count;
}

bool LxMemoryStream::Seek(int64_t offset, LxSeekOrigin origin) {
    if (!open) return false;
    int64_t base = origin == kLxSeekBegin ? 0 : origin == kLxSeekCurrent ? position : GetLength();
    int64_t target = base + offset;
    if (target < 0) return false;
    position = target;
    return true;
}

bool LxMemoryStream::Truncate() {
    if (!open) return false;
    // Like a file: cutting past the end extends the stream with zeros.
    bytes.resize(static_cast<size_t>(position));
    return true;
}
