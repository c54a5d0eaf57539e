#include "LxCrc32.h"

#if defined(LX_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

uint32_t LxCrc32::Update(uint32_t crc, const void* bytes, size_t size) {
#if defined(LX_HAVE_LIBDEFLATE)
    return libdeflate_crc32(crc, bytes, size);
#else
    const auto* p = static_cast<const Bytef*>(bytes);
    // zlib takes lengths as uInt; feed it in pieces that fit.
    while (size > 0) {
        const uInt piece = static_cast<uInt>(size > (1u << 30) ? (1u << 30) : size);
        crc = static_cast<uint32_t>(crc32(crc, p, piece));
        p += piece;
        size -= piece;
    }
    return crc;
#endif
}
