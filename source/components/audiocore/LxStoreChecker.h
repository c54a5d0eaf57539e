#pragma once
// Reads a store's members as they are and either sums them up into an
// integrity record (for a verified save) or checks them against one (or, for
// a store saved without one, against what its structure allows) and names the
// damage and the clips it touches (for a verified load). The caller holds the
// store's lock. Nothing here raises an assertion report: what is wrong goes
// into the damage report.
#include <cstdint>
#include <set>
#include <vector>
#include "LxAudioDamageReport.h"
#include "LxPCMData.h"
#include "LxRange.h"
#include "LxStoreIntegrityRecord.h"

class LxAudioFile;
class LxMemberStream;

class LxStoreChecker {
public:
    // One range of a clip record: pages startPage to endPage (IDs), and the byte
    // offsets where it starts in the first and ends in the last.
    struct Range {
        int32_t startPage = 0, startOffset = 0, endPage = 0, endOffset = 0;
    };

    explicit LxStoreChecker(LxAudioFile& store);

    LxStoreIntegrityRecord Digest();
    // report.damage may already hold what loading found (missing chunk files,
    // lengths); a chunk named there is not named again.
    void Check(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report);
    // Parses the clip record at position of "clip.lxa" without reading it into
    // a clip: false when it is not a whole record of known effects.
    bool ParseClipRecord(uint32_t position, std::vector<Range>& ranges, uint32_t& bytes);

private:
    // A page's data or thumbnail range inside a data member, and its CRC-32 as it builds up.
    struct Span {
        int64_t start = 0, end = 0;
        size_t page = 0;
        bool thumbnail = false;
        uint32_t crc = 0;
    };

    LxMemberStream* Member(int index) const;
    // The checksum of a page's data and thumbnail from the checksum of each.
    static uint32_t BothCrc(uint32_t data, uint32_t thumbnail);
    // Reads a data member once: its chunks' checksums into summary, and each
    // span's checksum from the same blocks.
    void DigestMember(int index, LxStoreIntegrityRecord::Member& summary, std::vector<Span>& spans);
    uint32_t CrcOf(LxMemberStream& member, int64_t start, int64_t length);
    // The page records of "pcm.lxa" as read from its bytes.
    void ReadPageRecords();
    uint32_t PageDataCrc(const LxPCMData& record);
    // Whether a page record holds values a page can have, its ranges inside their members.
    bool PagePlausible(const LxPCMData& record) const;
    void CheckChunks(const LxStoreIntegrityRecord& record, LxAudioDamageReport& report, bool& pagesAtRisk);
    void CheckPagesAgainst(const LxStoreIntegrityRecord& record, LxAudioDamageReport& report);
    void CheckPageStructure(LxAudioDamageReport& report);
    void CheckClipTable(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report);
    // Without a record: pages and clips whose bytes lie in a chunk that loading
    // found missing or of the wrong length are damaged.
    void MarkDamagedSpans(LxAudioDamageReport& report);
    void CheckClips(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report);

    LxAudioFile& store;
    int64_t sizes[LxStoreIntegrityRecord::kMembers] = {0, 0, 0, 0, 0};
    std::vector<LxPCMData> pages;
    // CRC-32 of each page record's 36 bytes, read with it.
    std::vector<uint32_t> recordCrcs;
    std::vector<unsigned char> block;
};
