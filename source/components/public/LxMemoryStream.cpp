#include "LxPublic/LxMemoryStream.h"

#include <algorithm>
#include <cstring>

int LxMemoryStream::Read(void* buffer, int bytes) {
    if (!open_ || bytes <= 0 || position_ >= GetLength()) return 0;
    int64_t n = std::min<int64_t>(bytes, GetLength() - position_);
    std::memcpy(buffer, bytes_.data() + position_, static_cast<size_t>(n));
    position_ += n;
    return static_cast<int>(n);
}

int LxMemoryStream::Write(const void* buffer, int bytes) {
    if (!open_ || bytes <= 0) return 0;
    size_t end = static_cast<size_t>(position_) + static_cast<size_t>(bytes);
    if (end > bytes_.size()) bytes_.resize(end);
    std::memcpy(bytes_.data() + position_, buffer, static_cast<size_t>(bytes));
    position_ = static_cast<int64_t>(end);
    return bytes;
}

bool LxMemoryStream::Seek(int64_t offset, LxSeekOrigin origin) {
    if (!open_) return false;
    int64_t base = origin == kLxSeekBegin ? 0 : origin == kLxSeekCurrent ? position_ : GetLength();
    int64_t target = base + offset;
    if (target < 0) return false;
    position_ = target;
    return true;
}

bool LxMemoryStream::Truncate() {
    if (!open_) return false;
    // Like a file: cutting past the end extends the stream with zeros.
    bytes_.resize(static_cast<size_t>(position_));
    return true;
}
