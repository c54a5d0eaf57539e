#pragma once
// A stream with a direction. The Xfer operations are symmetric: in writing mode
// they write the value, in reading mode they fill it, so one routine serialises
// and deserialises a record. Integers are little-endian; doubles are IEEE-754
// binary64 in little-endian byte order.
#include <cstdint>
#include "ILxStream.h"

class LXPUBLIC_API ILxReadWriteStream : public ILxStream {
public:
    void SetWriting(bool toWrite) { writing = toWrite; }
    bool IsWriting() const { return writing; }

    // Each returns false on a short transfer; a failed read leaves the value 0.
    bool Xfer(int32_t& value);
    bool Xfer(uint32_t& value);
    bool Xfer(int64_t& value);
    bool Xfer(double& value);

private:
    bool writing = false;
};
