#pragma once
// The integrity record of a saved store: zlib CRC-32 checksums of every 1 MiB
// chunk of the five members, of every page's record and of its data and
// thumbnail, and of every clip's record, with the clip table as it was saved.
// A verified save writes it after the five members of the one-stream form, and
// as the file "integrity.lxi" beside the chunk files of the directory form; a
// reader of the plain forms never looks at it. Byte layout in
// docs/store-format.md.
//
// The record is a sequence of tagged sections, so that later additions (the
// tool's own data about clips) ride in the same record and older readers skip
// them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class LxStoreIntegrityRecord {
public:
    struct Chunk {
        uint32_t length = 0;
        uint32_t crc = 0;
    };
    struct Member {
        uint32_t length = 0;
        std::vector<Chunk> chunks;  // 1 MiB each but the last
    };
    struct Page {
        uint32_t recordCrc = 0;  // the 36 bytes of its record
        uint32_t dataCrc = 0;    // its data, then its thumbnail (0 for a silent page)
    };
    struct Clip {
        int32_t id = 0;
        uint32_t position = 0;  // of its record in "clip.lxa"
        uint32_t bytes = 0;     // length of its record
        uint32_t crc = 0;
    };

    static constexpr const char* kFileName = "integrity.lxi";
    static constexpr int kMembers = 5;
    static constexpr int kHeaderBytes = 12;
    static constexpr int kFooterBytes = 12;
    static constexpr uint32_t kVersion = 1;

    Member members[kMembers];   // raw, enc, pcm, clip, map
    std::vector<Page> pages;    // page i is the record at byte 36 * i of "pcm.lxa"
    std::vector<Clip> clips;    // ascending clip ID

    std::vector<unsigned char> Serialize() const;
    // Reads a whole record, header to footer; false (with why) when the bytes
    // are not one, or it is damaged. Every count is checked against the bytes
    // given before it sizes anything.
    static bool Parse(const unsigned char* bytes, size_t size, LxStoreIntegrityRecord& record, std::string& why);
    // Whether bytes start like a record (its magic); then recordBytes receives
    // the whole record's length as its header gives it.
    static bool LooksLikeHeader(const unsigned char* bytes, size_t size, uint64_t& recordBytes);
    // The whole record's length from the last kFooterBytes of a stream; 0 when
    // they are not a record's footer.
    static uint64_t LengthFromFooter(const unsigned char* footer);

    static uint32_t Crc(uint32_t crc, const void* bytes, size_t size);
};
