#pragma once
// Factories of the platform's streams.
#include <cstdint>
#include <memory>
#include "ILxReadWriteStream.h"
#include "LxFile.h"

// Access bits of CreateFileStreamReadWrite's mode.
enum LxStreamMode { kLxStreamRead = 1, kLxStreamWrite = 2, kLxStreamReadWrite = 3 };

class LXPUBLIC_API LxStreamUtil {
public:
    // Opens a buffered file stream. mode kLxStreamReadWrite opens an existing
    // file as it is or creates an empty one; kLxStreamWrite alone creates or
    // empties the file; kLxStreamRead opens an existing file for reading.
    // shareMode and attributes are the sharing and attribute words of the
    // Windows file API; the engine passes 0x3f3f3f3f for both (defaults), and
    // they do not change the behaviour of the stream.
    // Returns nullptr when the file cannot be opened.
    static std::unique_ptr<ILxReadWriteStream> CreateFileStreamReadWrite(
        const LxFile& file, int mode, int shareMode, int attributes);
    // Opens an existing file for reading; nullptr when it cannot be opened. The
    // other arguments are those of CreateFileStreamReadWrite; only reading is granted.
    static std::unique_ptr<ILxReadWriteStream> CreateFileStreamRead(const LxFile& file, int mode = kLxStreamRead,
                                                                    int shareMode = 0x3f3f3f3f,
                                                                    int attributes = 0x3f3f3f3f);
    // A growable stream in memory, empty and in reading mode.
    static std::unique_ptr<ILxReadWriteStream> CreateMemoryStream();

    // The little-endian 32-bit word at bytes, the byte order of every stream's
    // 32-bit transfer, for code that parses bytes it has read in bulk.
    static uint32_t GetLe32(const unsigned char* bytes) {
        return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
               (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
    }
};
