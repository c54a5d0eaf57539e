#pragma once
// CRC-32 as zlib's crc32 computes it (reflected polynomial 0xEDB88320, initial
// value 0): the checksum of integrity records and capture journals. Computed by
// libdeflate where the build has it (several times faster on CPUs with carry-less
// multiplication), else by zlib; both give the same values.
#include <cstddef>
#include <cstdint>

namespace LxCrc32 {

// The CRC-32 of bytes following data whose CRC-32 is crc (0 to start).
uint32_t Update(uint32_t crc, const void* bytes, size_t size);

}  // namespace LxCrc32
