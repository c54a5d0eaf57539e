#include "LxStoreSalvager.h"

#include "LxAudioConstants.h"
#include "LxAudioFile.h"
#include "LxClipDataStream.h"
#include "LxClipMapStream.h"
#include "LxClipRecord.h"
#include "LxPCMData.h"
#include "LxPublic/LxRecursiveLock.h"

int LxStoreSalvager::Run(LxAudioFile& source, LxAudioFile& target, const LxAudioDamageReport& report,
                         bool fillDamaged, std::map<int, int>& idMap, std::set<int>& patched) {
    // This store first, then the other, as every copy between stores.
    LxRecursiveLock guard(source.lock);
    LxRecursiveLock targetGuard(target.lock);
    if (!source.Map() || !target.Map() || !source.Clip()->GetStream()) return 0;
    int copied = 0;
    for (const auto& [clipID, position] : report.clipTable) {
        if (report.unreadableClips.count(clipID) != 0) continue;
        // The record is read at the position the report trusts, not through
        // this store's clip table, which may be the damaged part.
        LxClipRecord original(&source);
        ILxReadWriteStream* records = source.Clip()->GetStream();
        records->Seek(position, kLxSeekBegin);
        original.ReadFromStream(*records);
        bool hurt = false;
        for (const LxPageRange& range : original.ranges) {
            for (int page = range.startPage; !hurt && page <= range.endPage; page += kLxPageRecordBytes)
                hurt = report.damagedPages.count(page) != 0;
        }
        if (hurt && !fillDamaged) continue;
        LxClipRecord copy(&target);
        const int64_t refusals = target.GetRoomRefusals();
        for (const LxPageRange& range : original.ranges) {
            // A lost page takes the channel count of the range's other pages.
            int channels = 1;
            LxPCMData record;
            for (int page = range.startPage; page <= range.endPage; page += kLxPageRecordBytes) {
                if (report.damagedPageRecords.count(page) == 0 && source.ReadPageHeader(page, record)) {
                    channels = record.channels;
                    break;
                }
            }
            int first = -1, last = -1;
            for (int page = range.startPage; page <= range.endPage; page += kLxPageRecordBytes) {
                int made = -1;
                if (report.damagedPages.count(page) == 0) {
                    made = source.CopyPageTo(page, target);
                } else if (report.damagedPageRecords.count(page) == 0 && source.ReadPageHeader(page, record)) {
                    target.AppendSilentPage(record.pcmBytes, record.channels, record.sampleRate, 16, made);
                } else {
                    target.AppendSilentPage(kLxMaxPageBytes, channels, kLxFrameRate, kLxBitsPerSample, made);
                }
                if (first == -1) first = made;
                last = made;
            }
            if (first == -1 || last == -1) continue;
            LxPageRange moved = range;
            moved.SetAudioFile(&target);
            moved.startPage = first;
            moved.endPage = last;
            copy.ranges.push_back(moved);
        }
        // A clip some of whose pages the target had no room for is left out
        // rather than stored short of them.
        if (target.GetRoomRefusals() != refusals) continue;
        const int newID = target.WriteClip(copy);
        if (newID < 1) continue;
        idMap[clipID] = newID;
        if (hurt) patched.insert(clipID);
        ++copied;
    }
    return copied;
}
