#include "LxPublic/ILxStream.h"

#include <algorithm>
#include <cstring>
#include <vector>

ILxStream::~ILxStream() = default;

bool ILxStream::ReadInt32(int32_t& value) {
    unsigned char bytes[4];
    if (Read(bytes, 4) != 4) {
        value = 0;
        return false;
    }
    value = static_cast<int32_t>(static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
                                 (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24));
    return true;
}

bool ILxStream::WriteInt32(int32_t value) {
    uint32_t v = static_cast<uint32_t>(value);
    unsigned char bytes[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                              static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
    return Write(bytes, 4) == 4;
}

int64_t ILxStream::CopyFrom(ILxStream& source, int64_t bytes) {
    constexpr int64_t kBlockBytes = 1 << 20;
    std::vector<unsigned char> block(static_cast<size_t>(std::clamp<int64_t>(bytes, 0, kBlockBytes)));
    int64_t done = 0;
    while (done < bytes) {
        const int n = static_cast<int>(std::min<int64_t>(kBlockBytes, bytes - done));
        const int got = source.Read(block.data(), n);
        if (got <= 0) break;
        const int put = Write(block.data(), got);
        if (put > 0) done += put;
        if (put != got) break;
    }
    return done;
}
