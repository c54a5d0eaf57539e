#include "LxPublic/ILxReadWriteStream.h"

#include <cstring>

namespace {

// Moves an unsigned value of width bytes in little-endian order, in the
// stream's direction. A failed read leaves the value 0.
template <typename T>
bool XferUnsigned(ILxReadWriteStream& stream, T& value) {
    constexpr int width = static_cast<int>(sizeof(T));
    unsigned char bytes[width];
    if (stream.IsWriting()) {
        for (int i = 0; i < width; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
        return stream.Write(bytes, width) == width;
    }
    if (stream.Read(bytes, width) != width) {
        value = 0;
        return false;
    }
    T result = 0;
    for (int i = 0; i < width; ++i) result |= static_cast<T>(bytes[i]) << (8 * i);
    value = result;
    return true;
}

}  // namespace

bool ILxReadWriteStream::Xfer(int32_t& value) {
    uint32_t bits = static_cast<uint32_t>(value);
    bool ok = XferUnsigned(*this, bits);
    value = static_cast<int32_t>(bits);
    return ok;
}

bool ILxReadWriteStream::Xfer(uint32_t& value) { return XferUnsigned(*this, value); }

bool ILxReadWriteStream::Xfer(int64_t& value) {
    uint64_t bits = static_cast<uint64_t>(value);
    bool ok = XferUnsigned(*this, bits);
    value = static_cast<int64_t>(bits);
    return ok;
}

bool ILxReadWriteStream::Xfer(double& value) {
    static_assert(sizeof(double) == 8, "doubles are IEEE-754 binary64");
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    bool ok = XferUnsigned(*this, bits);
    std::memcpy(&value, &bits, 8);
    return ok;
}
