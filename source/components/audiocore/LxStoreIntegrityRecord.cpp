#include "LxStoreIntegrityRecord.h"

#include <cstring>
#include "LxCrc32.h"
#include "LxPublic/LxStreamUtil.h"

namespace {

constexpr unsigned char kMagic[4] = {'L', 'X', 'I', 'R'};
constexpr unsigned char kEndMagic[4] = {'L', 'X', 'I', 'E'};
constexpr unsigned char kMembersTag[4] = {'M', 'E', 'M', 'B'};
constexpr unsigned char kPagesTag[4] = {'P', 'A', 'G', 'E'};
constexpr unsigned char kClipsTag[4] = {'C', 'L', 'I', 'P'};

void Put32(std::vector<unsigned char>& out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

uint32_t Get32(const unsigned char* p) { return LxStreamUtil::GetLe32(p); }

// Reads little-endian words from a section, never past its end.
class Reader {
public:
    Reader(const unsigned char* bytes, size_t size) : p(bytes), left(size) {}
    bool Word(uint32_t& value) {
        if (left < 4) return false;
        value = Get32(p);
        p += 4;
        left -= 4;
        return true;
    }
    // Whether count items of itemBytes each still fit.
    bool Holds(uint32_t count, size_t itemBytes) const { return count <= left / itemBytes; }
    bool Done() const { return left == 0; }

private:
    const unsigned char* p;
    size_t left;
};

void PutSection(std::vector<unsigned char>& out, const unsigned char tag[4], const std::vector<unsigned char>& body) {
    out.insert(out.end(), tag, tag + 4);
    Put32(out, static_cast<uint32_t>(body.size()));
    out.insert(out.end(), body.begin(), body.end());
}

bool ParseMembers(Reader in, LxStoreIntegrityRecord& record) {
    for (LxStoreIntegrityRecord::Member& member : record.members) {
        uint32_t count = 0;
        if (!in.Word(member.length) || !in.Word(count) || !in.Holds(count, 8)) return false;
        member.chunks.resize(count);
        uint64_t total = 0;
        for (LxStoreIntegrityRecord::Chunk& chunk : member.chunks) {
            in.Word(chunk.length);
            in.Word(chunk.crc);
            total += chunk.length;
        }
        if (total != member.length) return false;
    }
    return in.Done();
}

bool ParsePages(Reader in, LxStoreIntegrityRecord& record) {
    uint32_t count = 0;
    if (!in.Word(count) || !in.Holds(count, 8)) return false;
    record.pages.resize(count);
    for (LxStoreIntegrityRecord::Page& page : record.pages) {
        in.Word(page.recordCrc);
        in.Word(page.dataCrc);
    }
    return in.Done();
}

bool ParseClips(Reader in, LxStoreIntegrityRecord& record) {
    uint32_t count = 0;
    if (!in.Word(count) || !in.Holds(count, 16)) return false;
    record.clips.resize(count);
    for (LxStoreIntegrityRecord::Clip& clip : record.clips) {
        uint32_t id = 0;
        in.Word(id);
        clip.id = static_cast<int32_t>(id);
        in.Word(clip.position);
        in.Word(clip.bytes);
        in.Word(clip.crc);
    }
    return in.Done();
}

}  // namespace

uint32_t LxStoreIntegrityRecord::Crc(uint32_t crc, const void* bytes, size_t size) {
    return LxCrc32::Update(crc, bytes, size);
}

std::vector<unsigned char> LxStoreIntegrityRecord::Serialize() const {
    std::vector<unsigned char> body;
    std::vector<unsigned char> section;
    for (const Member& member : members) {
        Put32(section, member.length);
        Put32(section, static_cast<uint32_t>(member.chunks.size()));
        for (const Chunk& chunk : member.chunks) {
            Put32(section, chunk.length);
            Put32(section, chunk.crc);
        }
    }
    PutSection(body, kMembersTag, section);
    section.clear();
    Put32(section, static_cast<uint32_t>(pages.size()));
    for (const Page& page : pages) {
        Put32(section, page.recordCrc);
        Put32(section, page.dataCrc);
    }
    PutSection(body, kPagesTag, section);
    section.clear();
    Put32(section, static_cast<uint32_t>(clips.size()));
    for (const Clip& clip : clips) {
        Put32(section, static_cast<uint32_t>(clip.id));
        Put32(section, clip.position);
        Put32(section, clip.bytes);
        Put32(section, clip.crc);
    }
    PutSection(body, kClipsTag, section);

    std::vector<unsigned char> out(kMagic, kMagic + 4);
    Put32(out, kVersion);
    Put32(out, static_cast<uint32_t>(body.size()));
    out.insert(out.end(), body.begin(), body.end());
    Put32(out, Crc(0, out.data(), out.size()));
    Put32(out, static_cast<uint32_t>(out.size() + 8));
    out.insert(out.end(), kEndMagic, kEndMagic + 4);
    return out;
}

bool LxStoreIntegrityRecord::LooksLikeHeader(const unsigned char* bytes, size_t size, uint64_t& recordBytes) {
    if (size < kHeaderBytes || std::memcmp(bytes, kMagic, 4) != 0) return false;
    recordBytes = uint64_t{kHeaderBytes} + Get32(bytes + 8) + kFooterBytes;
    return true;
}

uint64_t LxStoreIntegrityRecord::LengthFromFooter(const unsigned char* footer) {
    if (std::memcmp(footer + 8, kEndMagic, 4) != 0) return 0;
    uint64_t length = Get32(footer + 4);
    return length >= uint64_t{kHeaderBytes} + kFooterBytes ? length : 0;
}

bool LxStoreIntegrityRecord::Parse(const unsigned char* bytes, size_t size, LxStoreIntegrityRecord& record,
                                   std::string& why) {
    uint64_t expected = 0;
    if (!LooksLikeHeader(bytes, size, expected)) {
        why = "not an integrity record";
        return false;
    }
    if (expected != size || LengthFromFooter(bytes + size - kFooterBytes) != size) {
        why = "integrity record has the wrong length";
        return false;
    }
    const size_t covered = size - kFooterBytes;
    if (Crc(0, bytes, covered) != Get32(bytes + covered)) {
        why = "integrity record's checksum differs";
        return false;
    }
    if (Get32(bytes + 4) != kVersion) {
        why = "integrity record of an unknown version";
        return false;
    }
    record = LxStoreIntegrityRecord();
    bool members = false, pages = false, clips = false;
    const unsigned char* p = bytes + kHeaderBytes;
    size_t left = covered - kHeaderBytes;
    while (left > 0) {
        if (left < 8 || Get32(p + 4) > left - 8) {
            why = "integrity record's sections overrun it";
            return false;
        }
        const size_t length = Get32(p + 4);
        Reader section(p + 8, length);
        bool ok = true;
        // Sections of other tags belong to later versions of the tool: skipped.
        if (std::memcmp(p, kMembersTag, 4) == 0) {
            ok = members = ParseMembers(section, record);
        } else if (std::memcmp(p, kPagesTag, 4) == 0) {
            ok = pages = ParsePages(section, record);
        } else if (std::memcmp(p, kClipsTag, 4) == 0) {
            ok = clips = ParseClips(section, record);
        }
        if (!ok) {
            why = "integrity record's sections do not add up";
            return false;
        }
        p += 8 + length;
        left -= 8 + length;
    }
    if (!members || !pages || !clips) {
        why = "integrity record lacks a section";
        return false;
    }
    return true;
}
