#include "LxPublic/ILxStream.h"

#include <cstring>

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
