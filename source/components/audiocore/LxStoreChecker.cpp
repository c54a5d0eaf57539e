#include "LxStoreChecker.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <map>
#include <string>
#include "LxAudioEffectEnum.h"
#include "LxAudioFile.h"
#include "LxClipDataStream.h"
#include "LxClipMapStream.h"
#include "LxDataStream.h"
#include "LxMemberStream.h"
#include "LxPCMDataStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxStoreMembers.h"

namespace {

constexpr int kChunkBytes = LxMemberStream::kChunkBytes;
constexpr int kRaw = LxStoreMembers::kRaw, kEnc = LxStoreMembers::kEnc, kPcm = LxStoreMembers::kPcm,
              kClip = LxStoreMembers::kClip, kMap = LxStoreMembers::kMap;
// A range record: four fields and its effect count; each volume effect adds its
// kind and three doubles.
constexpr uint32_t kRangeBytes = 20;
constexpr int64_t kVolumeEffectDataBytes = 24;

int32_t Get32(const unsigned char* p) { return static_cast<int32_t>(LxStreamUtil::GetLe32(p)); }

LxPCMData RecordFromBytes(const unsigned char* p) {
    LxPCMData record;
    record.codec = Get32(p);
    record.pcmBytes = Get32(p + 4);
    record.dataRange = LxRange{Get32(p + 8), Get32(p + 12)};
    record.thumbnailRange = LxRange{Get32(p + 16), Get32(p + 20)};
    record.channels = Get32(p + 24);
    record.sampleRate = Get32(p + 28);
    record.bitsPerSample = Get32(p + 32);
    return record;
}

bool Inside(const LxRange& range, int64_t memberSize) {
    return range.start >= 0 && range.end >= range.start && range.end <= memberSize;
}

// "216, 252 and 3 more"
std::string ListOf(const std::vector<int>& ids) {
    std::string text;
    const size_t shown = std::min<size_t>(ids.size(), 5);
    for (size_t i = 0; i < shown; ++i) text += (i ? ", " : "") + std::to_string(ids[i]);
    if (ids.size() > shown) text += " and " + std::to_string(ids.size() - shown) + " more";
    return text;
}

bool Named(const LxAudioDamageReport& report, const std::string& member, int chunk) {
    for (const LxAudioDamage& d : report.damage) {
        if (d.member == member && (d.chunk == chunk || d.chunk == -1)) return true;
    }
    return false;
}

}  // namespace

LxStoreChecker::LxStoreChecker(LxAudioFile& audioFile) : store(audioFile), block(LxMemberStream::kChunkBytes) {
    for (int i = 0; i < LxStoreIntegrityRecord::kMembers; ++i) sizes[i] = Member(i) ? Member(i)->GetSize() : 0;
}

LxMemberStream* LxStoreChecker::Member(int index) const {
    return store.members ? &store.members->At(index) : nullptr;
}

uint32_t LxStoreChecker::CrcOf(LxMemberStream& member, int64_t start, int64_t length) {
    uint32_t crc = 0;
    while (length > 0) {
        const int want = static_cast<int>(std::min<int64_t>(length, static_cast<int64_t>(block.size())));
        const int got = member.ReadAt(start, block.data(), want);
        if (got <= 0) break;
        crc = LxStoreIntegrityRecord::Crc(crc, block.data(), static_cast<size_t>(got));
        start += got;
        length -= got;
    }
    return crc;
}

void LxStoreChecker::ReadPageRecords() {
    pages.clear();
    recordCrcs.clear();
    LxMemberStream& pcm = *Member(kPcm);
    const int64_t count = sizes[kPcm] / kLxPageRecordBytes;
    pages.reserve(static_cast<size_t>(count));
    recordCrcs.reserve(static_cast<size_t>(count));
    const int recordsPerBlock = static_cast<int>(block.size()) / kLxPageRecordBytes;
    for (int64_t first = 0; first < count; first += recordsPerBlock) {
        const int n = static_cast<int>(std::min<int64_t>(recordsPerBlock, count - first));
        const int got = pcm.ReadAt(first * kLxPageRecordBytes, block.data(), n * kLxPageRecordBytes);
        for (int i = 0; i < n; ++i) {
            const unsigned char* bytes = block.data() + i * kLxPageRecordBytes;
            const bool whole = i < got / kLxPageRecordBytes;
            pages.push_back(whole ? RecordFromBytes(bytes) : LxPCMData());
            // A record that could not be read matches no saved checksum but that of nothing.
            recordCrcs.push_back(whole ? LxStoreIntegrityRecord::Crc(0, bytes, kLxPageRecordBytes) : ~0u);
        }
    }
}

uint32_t LxStoreChecker::PageDataCrc(const LxPCMData& record) {
    if (record.codec != kLxPageCodecRaw && record.codec != kLxPageCodecVorbis) return 0;
    LxMemberStream& data = *Member(record.codec == kLxPageCodecRaw ? kRaw : kEnc);
    uint32_t crc = CrcOf(data, record.dataRange.start, std::max(0, record.dataRange.Size()));
    // The thumbnail follows on, so that one checksum covers both.
    const uint32_t thumbnail =
        CrcOf(*Member(kEnc), record.thumbnailRange.start, std::max(0, record.thumbnailRange.Size()));
    return BothCrc(crc, thumbnail);
}

uint32_t LxStoreChecker::BothCrc(uint32_t data, uint32_t thumbnail) {
    const unsigned char both[8] = {static_cast<unsigned char>(data),       static_cast<unsigned char>(data >> 8),
                                   static_cast<unsigned char>(data >> 16), static_cast<unsigned char>(data >> 24),
                                   static_cast<unsigned char>(thumbnail),  static_cast<unsigned char>(thumbnail >> 8),
                                   static_cast<unsigned char>(thumbnail >> 16), static_cast<unsigned char>(thumbnail >> 24)};
    return LxStoreIntegrityRecord::Crc(0, both, sizeof both);
}

void LxStoreChecker::DigestMember(int index, LxStoreIntegrityRecord::Member& summary, std::vector<Span>& spans) {
    // Spans in the order of their start; each takes its bytes from the blocks
    // as they pass, in order, so its checksum builds up as if read on its own.
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
    size_t next = 0;
    std::vector<Span*> open;
    LxMemberStream& member = *Member(index);
    const int64_t size = sizes[index];
    summary.length = static_cast<uint32_t>(size);
    for (int64_t start = 0; start < size; start += kChunkBytes) {
        const int64_t length = std::min<int64_t>(kChunkBytes, size - start);
        const int got = std::max(0, member.ReadAt(start, block.data(), static_cast<int>(length)));
        summary.chunks.push_back({static_cast<uint32_t>(length), LxStoreIntegrityRecord::Crc(0, block.data(), static_cast<size_t>(got))});
        // A read cut short ends the member here, as for CrcOf.
        const int64_t end = start + got;
        while (next < spans.size() && spans[next].start < end) open.push_back(&spans[next++]);
        for (size_t k = 0; k < open.size();) {
            Span& span = *open[k];
            const int64_t lo = std::max(span.start, start), hi = std::min(span.end, end);
            if (hi > lo) span.crc = LxStoreIntegrityRecord::Crc(span.crc, block.data() + (lo - start), static_cast<size_t>(hi - lo));
            if (span.end <= end) {
                open[k] = open.back();
                open.pop_back();
            } else {
                ++k;
            }
        }
        if (got < length) break;
    }
}

bool LxStoreChecker::PagePlausible(const LxPCMData& r) const {
    if (r.channels < 1 || r.channels > 2 || r.bitsPerSample != 16 || r.sampleRate < 1 || r.sampleRate > 768000 ||
        r.pcmBytes < 0 || r.pcmBytes > kLxMaxPageBytes) {
        return false;
    }
    switch (r.codec) {
        case kLxPageCodecSilent: return true;
        case kLxPageCodecRaw:
            if (!Inside(r.dataRange, sizes[kRaw]) || r.dataRange.Size() < r.pcmBytes) return false;
            break;
        case kLxPageCodecVorbis:
            if (!Inside(r.dataRange, sizes[kEnc]) || r.dataRange.Size() < 1 || r.dataRange.Size() > kLxMaxPageBytes)
                return false;
            break;
        default: return false;
    }
    return Inside(r.thumbnailRange, sizes[kEnc]) && r.thumbnailRange.Size() <= (1960 / r.channels) * 2;
}

bool LxStoreChecker::ParseClipRecord(uint32_t position, std::vector<Range>& ranges, uint32_t& bytes) {
    ranges.clear();
    bytes = 0;
    LxMemberStream& clips = *Member(kClip);
    int64_t at = position;
    auto word = [&](int32_t& value) {
        unsigned char p[4];
        if (clips.ReadAt(at, p, 4) != 4) return false;
        value = Get32(p);
        at += 4;
        return true;
    };
    int32_t count = 0;
    if (!word(count)) return false;
    if (count < 0) count = 0;  // read as a clip without ranges
    // The count sizes nothing beyond what the member holds.
    if (static_cast<int64_t>(count) > (sizes[kClip] - at) / kRangeBytes) return false;
    ranges.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        Range range;
        int32_t effects = 0;
        if (!word(range.startPage) || !word(range.startOffset) || !word(range.endPage) || !word(range.endOffset) ||
            !word(effects) || effects < 0) {
            return false;
        }
        for (int32_t e = 0; e < effects; ++e) {
            int32_t kind = 0;
            if (!word(kind) || kind != LxAudioEffectVolume || at + kVolumeEffectDataBytes > sizes[kClip]) return false;
            at += kVolumeEffectDataBytes;
        }
        ranges.push_back(range);
    }
    bytes = static_cast<uint32_t>(at - position);
    return true;
}

LxStoreIntegrityRecord LxStoreChecker::Digest() {
    LxStoreIntegrityRecord record;
    ReadPageRecords();
    // One pass over each data member: its chunks and the page data and
    // thumbnails in it are summed from the same blocks.
    std::vector<Span> spans[2];  // in raw, in enc
    std::vector<uint32_t> dataCrcs(pages.size(), 0), thumbnailCrcs(pages.size(), 0);
    // Sized once: a long project has tens of thousands of spans, and growing
    // the list by doubling would hold its old and new copies at once, the
    // largest allocation of a save.
    size_t counts[2] = {0, 0};
    for (const LxPCMData& p : pages) {
        if (p.codec != kLxPageCodecRaw && p.codec != kLxPageCodecVorbis) continue;
        ++counts[p.codec == kLxPageCodecRaw ? 0 : 1];
        ++counts[1];
    }
    spans[0].reserve(counts[0]);
    spans[1].reserve(counts[1]);
    for (size_t i = 0; i < pages.size(); ++i) {
        const LxPCMData& p = pages[i];
        if (p.codec != kLxPageCodecRaw && p.codec != kLxPageCodecVorbis) continue;
        // What CrcOf would read of a range: from its start (when not negative) to its end, inside the member.
        auto add = [&](std::vector<Span>& to, const LxRange& range, bool thumbnail) {
            if (range.start >= 0 && range.Size() > 0) to.push_back({range.start, range.end, i, thumbnail, 0});
        };
        add(spans[p.codec == kLxPageCodecRaw ? 0 : 1], p.dataRange, false);
        add(spans[1], p.thumbnailRange, true);
    }
    for (int i = 0; i < LxStoreIntegrityRecord::kMembers; ++i) {
        if (i == kRaw || i == kEnc) {
            std::vector<Span>& list = spans[i == kRaw ? 0 : 1];
            DigestMember(i, record.members[i], list);
            for (const Span& span : list) (span.thumbnail ? thumbnailCrcs : dataCrcs)[span.page] = span.crc;
            continue;
        }
        record.members[i].length = static_cast<uint32_t>(sizes[i]);
        for (int64_t start = 0; start < sizes[i]; start += kChunkBytes) {
            const int64_t length = std::min<int64_t>(kChunkBytes, sizes[i] - start);
            record.members[i].chunks.push_back(
                {static_cast<uint32_t>(length), CrcOf(*Member(i), start, length)});
        }
    }
    record.pages.reserve(pages.size());
    for (size_t i = 0; i < pages.size(); ++i) {
        const bool stored = pages[i].codec == kLxPageCodecRaw || pages[i].codec == kLxPageCodecVorbis;
        record.pages.push_back({recordCrcs[i], stored ? BothCrc(dataCrcs[i], thumbnailCrcs[i]) : 0});
    }
    std::list<int> ids;
    store.Map()->GetClipIDs(ids);
    for (int id : ids) {
        LxStoreIntegrityRecord::Clip clip;
        clip.id = id;
        clip.position = *store.Map()->Find(id);
        std::vector<Range> ranges;
        ParseClipRecord(clip.position, ranges, clip.bytes);
        clip.crc = CrcOf(*Member(kClip), clip.position, clip.bytes);
        record.clips.push_back(clip);
    }
    return record;
}

void LxStoreChecker::CheckChunks(const LxStoreIntegrityRecord& record, LxAudioDamageReport& report,
                                 bool& pagesAtRisk) {
    for (int i = 0; i < LxStoreIntegrityRecord::kMembers; ++i) {
        const LxStoreIntegrityRecord::Member& saved = record.members[i];
        bool damaged = false;
        if (sizes[i] != saved.length && !Named(report, LxStoreMembers::Name(i), -1)) {
            report.damage.push_back({LxStoreMembers::Name(i), -1, "",
                                     "holds " + std::to_string(sizes[i]) + " bytes, " +
                                         std::to_string(saved.length) + " saved"});
            damaged = true;
        }
        for (size_t k = 0; k < saved.chunks.size(); ++k) {
            const int64_t start = static_cast<int64_t>(k) * kChunkBytes;
            const int number = static_cast<int>(k) + 1;
            if (Named(report, LxStoreMembers::Name(i), number)) {
                damaged = true;
                continue;
            }
            const int64_t length = std::clamp<int64_t>(sizes[i] - start, 0, kChunkBytes);
            if (length != saved.chunks[k].length || CrcOf(*Member(i), start, length) != saved.chunks[k].crc) {
                report.damage.push_back({LxStoreMembers::Name(i), number, "", "checksum differs"});
                damaged = true;
            }
        }
        if (damaged && i <= kPcm) pagesAtRisk = true;
    }
}

void LxStoreChecker::CheckPagesAgainst(const LxStoreIntegrityRecord& record, LxAudioDamageReport& report) {
    for (size_t i = 0; i < record.pages.size(); ++i) {
        const int pageID = static_cast<int>(i) * kLxPageRecordBytes;
        if (i >= pages.size() || recordCrcs[i] != record.pages[i].recordCrc) {
            report.damagedPages.insert(pageID);
            report.damagedPageRecords.insert(pageID);
        } else if (PageDataCrc(pages[i]) != record.pages[i].dataCrc) {
            report.damagedPages.insert(pageID);
        }
    }
}

void LxStoreChecker::CheckPageStructure(LxAudioDamageReport& report) {
    std::vector<int> implausible;
    for (size_t i = 0; i < pages.size(); ++i) {
        if (PagePlausible(pages[i])) continue;
        const int pageID = static_cast<int>(i) * kLxPageRecordBytes;
        implausible.push_back(pageID);
        report.damagedPages.insert(pageID);
        report.damagedPageRecords.insert(pageID);
    }
    if (sizes[kPcm] % kLxPageRecordBytes != 0) {
        report.damage.push_back({LxStoreMembers::Name(kPcm), -1, "",
                                 std::to_string(sizes[kPcm]) + " bytes: not a whole number of page records"});
    }
    if (!implausible.empty()) {
        report.damage.push_back({LxStoreMembers::Name(kPcm), -1, "",
                                 std::to_string(implausible.size()) + " page record(s) hold impossible values (pages " +
                                     ListOf(implausible) + ")"});
    }
}

void LxStoreChecker::CheckClipTable(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report) {
    // The table as "map.lxa" holds it, read from its bytes.
    std::map<int, uint32_t> loaded;
    bool malformed = false;
    unsigned char word[8];
    int32_t count = 0;
    if (Member(kMap)->ReadAt(0, word, 4) == 4) count = Get32(word);
    if (sizes[kMap] < 4 || count < 0 || static_cast<int64_t>(count) * 8 + 4 != sizes[kMap]) malformed = true;
    const int64_t entries = std::clamp<int64_t>(std::min<int64_t>(count, (sizes[kMap] - 4) / 8), 0, INT32_MAX);
    for (int64_t i = 0; i < entries; ++i) {
        if (Member(kMap)->ReadAt(4 + 8 * i, word, 8) != 8) break;
        const int32_t id = Get32(word);
        if (id < 1 || !loaded.emplace(id, static_cast<uint32_t>(Get32(word + 4))).second) malformed = true;
    }
    if (malformed && !Named(report, LxStoreMembers::Name(kMap), -1) && !Named(report, LxStoreMembers::Name(kMap), 1)) {
        report.damage.push_back({LxStoreMembers::Name(kMap), -1, "",
                                 "the clip table is malformed (" + std::to_string(sizes[kMap]) + " bytes, count " +
                                     std::to_string(count) + ")"});
    }
    if (!record) {
        report.clipTable.clear();
        for (const auto& [id, position] : loaded) report.clipTable[id] = position;
        // Without checksums, a table that is not well formed vouches for no entry.
        if (malformed) {
            for (const auto& entry : loaded) {
                report.unreadableClips.insert(entry.first);
                report.damagedClips[entry.first] = "the clip table is damaged";
            }
        }
        return;
    }
    report.clipTable.clear();
    std::vector<int> differing;
    for (const LxStoreIntegrityRecord::Clip& clip : record->clips) {
        report.clipTable[clip.id] = clip.position;
        auto it = loaded.find(clip.id);
        if (it == loaded.end() || it->second != clip.position) {
            differing.push_back(clip.id);
            report.damagedClips[clip.id] = "its entry in the clip table is damaged";
        }
    }
    // IDs the table lists that were never saved (a damaged ID) name no clip:
    // they are reported with the damaged ones, and salvage leaves them out.
    std::vector<int> unsaved;
    for (const auto& entry : loaded) {
        if (report.clipTable.count(entry.first) != 0) continue;
        unsaved.push_back(entry.first);
        report.unreadableClips.insert(entry.first);
        report.damagedClips[entry.first] = "the clip table lists it, but no such clip was saved";
    }
    if (!differing.empty() || !unsaved.empty()) {
        std::string what = "the clip table differs from the saved one";
        if (!differing.empty()) what += " (entries of clips " + ListOf(differing) + ")";
        if (!unsaved.empty()) what += " (lists clips " + ListOf(unsaved) + " that were never saved)";
        if (!Named(report, LxStoreMembers::Name(kMap), 1) && !Named(report, LxStoreMembers::Name(kMap), -1))
            report.damage.push_back({LxStoreMembers::Name(kMap), -1, "", what});
    }
}

void LxStoreChecker::CheckClips(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report) {
    std::map<int, const LxStoreIntegrityRecord::Clip*> saved;
    if (record) {
        for (const LxStoreIntegrityRecord::Clip& clip : record->clips) saved[clip.id] = &clip;
    }
    // Clip records are appended back to back, each under an entry of the
    // table: without checksums, a record must end exactly where the next one
    // (or the member) does, or it, or the entry that finds it, is damaged.
    std::set<uint32_t> starts;
    for (const auto& entry : report.clipTable) starts.insert(entry.second);
    std::vector<int> badRecords;
    for (const auto& [id, position] : report.clipTable) {
        if (report.unreadableClips.count(id) != 0) {
            badRecords.push_back(id);
            continue;
        }
        std::vector<Range> ranges;
        uint32_t bytes = 0;
        bool readable = ParseClipRecord(position, ranges, bytes);
        if (readable && record) {
            const LxStoreIntegrityRecord::Clip& clip = *saved[id];
            readable = bytes == clip.bytes && CrcOf(*Member(kClip), position, bytes) == clip.crc;
        } else if (readable) {
            // A playable clip's record carries its source after the ranges.
            auto next = starts.upper_bound(position);
            const int64_t end = next == starts.end() ? sizes[kClip] : int64_t{*next};
            readable = int64_t{position} + bytes == end || int64_t{position} + bytes + 4 == end;
        }
        if (!readable) {
            report.unreadableClips.insert(id);
            report.damagedClips[id] = "its record is damaged";
            badRecords.push_back(id);
            continue;
        }
        std::vector<int> hurt;
        bool rangesValid = true;
        for (const Range& r : ranges) {
            const bool inside = r.startPage >= 0 && r.startPage % kLxPageRecordBytes == 0 &&
                                r.endPage % kLxPageRecordBytes == 0 && r.endPage >= r.startPage &&
                                static_cast<int64_t>(r.endPage) + kLxPageRecordBytes <= sizes[kPcm] &&
                                r.startOffset >= 0 && r.endOffset >= 0 &&
                                (r.startPage != r.endPage || r.startOffset <= r.endOffset);
            if (!inside) {
                rangesValid = false;
                break;
            }
            for (int page = r.startPage; page <= r.endPage; page += kLxPageRecordBytes) {
                if (report.damagedPages.count(page) != 0) {
                    if (hurt.empty() || hurt.back() != page) hurt.push_back(page);
                    continue;
                }
                const LxPCMData& p = pages[static_cast<size_t>(page / kLxPageRecordBytes)];
                if ((page == r.startPage && r.startOffset > p.pcmBytes) ||
                    (page == r.endPage && r.endOffset > p.pcmBytes)) {
                    rangesValid = false;
                }
            }
        }
        if (!rangesValid) {
            // Its ranges name pages that do not exist: as lost as a damaged record.
            report.unreadableClips.insert(id);
            report.damagedClips[id] = "it refers to pages that do not exist";
            badRecords.push_back(id);
        } else if (!hurt.empty()) {
            std::sort(hurt.begin(), hurt.end());
            hurt.erase(std::unique(hurt.begin(), hurt.end()), hurt.end());
            report.damagedClips[id] = "page" + std::string(hurt.size() > 1 ? "s " : " ") + ListOf(hurt) + " damaged";
        }
    }
    if (!badRecords.empty() && !Named(report, LxStoreMembers::Name(kClip), -1)) {
        bool chunkNamed = false;
        for (const LxAudioDamage& d : report.damage) chunkNamed = chunkNamed || d.member == LxStoreMembers::Name(kClip);
        if (!chunkNamed)
            report.damage.push_back({LxStoreMembers::Name(kClip), -1, "", "records of clips " + ListOf(badRecords) + " are damaged"});
    }
    for (const auto& entry : report.clipTable) {
        if (report.damagedClips.count(entry.first) == 0) report.intactClips.push_back(entry.first);
    }
}

void LxStoreChecker::MarkDamagedSpans(LxAudioDamageReport& report) {
    // Byte spans of each member that loading found missing or wrong.
    std::vector<LxRange> spans[LxStoreIntegrityRecord::kMembers];
    for (const LxAudioDamage& d : report.damage) {
        for (int i = 0; i < LxStoreIntegrityRecord::kMembers; ++i) {
            // Loading names the chunk; the count file stands for no bytes.
            if (d.member != LxStoreMembers::Name(i) || d.chunk < 1) continue;
            const int64_t first = int64_t{d.chunk - 1} * kChunkBytes;
            spans[i].push_back(LxRange{static_cast<int>(std::min<int64_t>(first, INT32_MAX)),
                                       static_cast<int>(std::min<int64_t>(first + kChunkBytes, INT32_MAX))});
        }
    }
    auto hits = [&](int member, const LxRange& range) {
        for (const LxRange& span : spans[member]) {
            if (range.start < span.end && range.end > span.start) return true;
            if (range.start == range.end && range.start >= span.start && range.start < span.end) return true;
        }
        return false;
    };
    for (size_t i = 0; i < pages.size(); ++i) {
        const int pageID = static_cast<int>(i) * kLxPageRecordBytes;
        const LxPCMData& p = pages[i];
        if (hits(kPcm, LxRange{pageID, pageID + kLxPageRecordBytes})) {
            report.damagedPages.insert(pageID);
            report.damagedPageRecords.insert(pageID);
        } else if ((p.codec == kLxPageCodecRaw && hits(kRaw, p.dataRange)) ||
                   (p.codec == kLxPageCodecVorbis && hits(kEnc, p.dataRange)) ||
                   (p.codec != kLxPageCodecSilent && hits(kEnc, p.thumbnailRange))) {
            report.damagedPages.insert(pageID);
        }
    }
    const bool tableHit = hits(kMap, LxRange{0, 1});
    for (const auto& [id, position] : report.clipTable) {
        const int at = static_cast<int>(position);
        if (tableHit || hits(kClip, LxRange{at, at + 1})) {
            report.unreadableClips.insert(id);
            report.damagedClips[id] = tableHit ? "the clip table is damaged" : "its record is damaged";
        }
    }
}

void LxStoreChecker::Check(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report) {
    ReadPageRecords();
    if (record) {
        bool pagesAtRisk = false;
        CheckChunks(*record, report, pagesAtRisk);
        if (pagesAtRisk) CheckPagesAgainst(*record, report);
    }
    CheckPageStructure(report);
    CheckClipTable(record, report);
    // Without checksums, whatever lies in a chunk that loading found damaged
    // is taken as damaged.
    if (!record) MarkDamagedSpans(report);
    CheckClips(record, report);
    if (!report.damagedPages.empty() && report.damage.empty()) {
        // Pages found damaged by their own checksums alone.
        report.damage.push_back({"", -1, "", std::to_string(report.damagedPages.size()) + " page(s) damaged"});
    }
}
