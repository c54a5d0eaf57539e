#include "LxAudioFile.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>
#include "LxAudioConstants.h"
#include "ILxClipRecord.h"
#include "LxAudioCompactor.h"
#include "LxAudioCompressor.h"
#include "LxClipDataStream.h"
#include "LxClipRecord.h"
#include "LxClipMapStream.h"
#include "LxCodecVorbis.h"
#include "LxDataStream.h"
#include "LxPCMDataStream.h"
#include "LxPageDecodeAhead.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFailureWatch.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxLock.h"
#include "LxPublic/LxQuietReports.h"
#include "LxPublic/LxRecursiveLock.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxPublic/LxZipUpdateInfo.h"
#include "LxStoreChecker.h"
#include "LxStoreIntegrityRecord.h"
#include "LxStoreMembers.h"
#include "LxStorePersistence.h"
#include "LxStoreSalvager.h"
#include "LxThumbnailCache.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";


LxAudioFile::LxAudioFile(const LxFile& storeDirectory)
    : directory(storeDirectory),
      silenceRange(this),
      thumbnails(std::make_unique<LxThumbnailCache>()),
      damageWatch(std::make_unique<LxFailureWatch>([this] { return MemberFailures(true) + MemberFailures(false); })) {
    silenceRange.effect = LxAudioVolumeEffect(1.0f, 0.0f, 1.0f);
    LxRecursiveLock guard(lock);
    Open();
    ReserveSilence();
}

LxAudioFile::~LxAudioFile() {
    LxLock compressorGuard(compressorMutex);
    LxRecursiveLock guard(lock);
    if (members) {
        Close();
        // Destroying the members deletes their files.
        members.reset();
    }
    thumbnails.reset();
    decodeAhead.reset();
}

void LxAudioFile::Open() { members = std::make_unique<LxStoreMembers>(directory); }

LxDataStream* LxAudioFile::Raw() const { return members ? &members->Raw() : nullptr; }
LxDataStream* LxAudioFile::Enc() const { return members ? &members->Enc() : nullptr; }
LxPCMDataStream* LxAudioFile::Pcm() const { return members ? &members->Pcm() : nullptr; }
LxClipDataStream* LxAudioFile::Clip() const { return members ? &members->Clip() : nullptr; }
LxClipMapStream* LxAudioFile::Map() const { return members ? &members->Map() : nullptr; }

void LxAudioFile::ReplaceMembers(std::unique_ptr<LxStoreMembers> fresh, const std::map<int, int>& oldToNewPage) {
    // The old members delete their files as they go; the fresh ones then move
    // into the store's directory under the same names.
    members = std::move(fresh);
    members->Map().Save();
    members->MoveInto(directory);
    thumbnails->Renumber(oldToNewPage);
    ++pageEpoch;
}

void LxAudioFile::PagesReplaced() {
    thumbnails->Drop();
    ++pageEpoch;
}

void LxAudioFile::ReserveSilence() {
    if (!Pcm()) return;
    // A store that already has its five silent records keeps them.
    if (Pcm()->GetSize() >= kLxFirstOrdinaryPage) {
        LxPCMData record;
        if (Pcm()->ReadPageHeader(kLxLastReservedPage, record) && record.codec == kLxPageCodecSilent) {
            silenceRange.startPage = 0;
            silenceRange.startOffset = 0;
            silenceRange.endPage = kLxLastReservedPage;
            silenceRange.endOffset = kLxMaxPageBytes;
            return;
        }
    }
    for (int i = 0; i < kLxReservedSilentPages; ++i) {
        if (!Pcm()) {
            LxAssertFailed("", kSourceFile, __LINE__);
            return;
        }
        int page = -1;
        Pcm()->AppendSilentPage(kLxMaxPageBytes, 1, kLxFrameRate, kLxBitsPerSample, page);
        if (silenceRange.startPage == -1) {
            silenceRange.startPage = page;
            silenceRange.startOffset = 0;
        }
        silenceRange.endPage = page;
        silenceRange.endOffset = kLxMaxPageBytes;
    }
}

bool LxAudioFile::IsOpen() const {
    LxRecursiveLock guard(lock);
    return Map() != nullptr;
}

int LxAudioFile::WriteClip(ILxClipRecord& clip) {
    LxRecursiveLock guard(lock);
    if (!Map() || !Clip() || !Clip()->GetStream()) return -1;
    int clipID = Map()->GetNextClipID();
    if (clipID < 1) {
        // A damaged table already holds the largest ID there is.
        LxAssertFailed("no clip ID left", kSourceFile, __LINE__);
        return -1;
    }
    ILxReadWriteStream* stream = Clip()->GetStream();
    stream->Seek(0, kLxSeekEnd);
    auto position = static_cast<uint32_t>(stream->GetPosition());
    clip.WriteToStream(*stream);
    (*Map())[clipID] = position;
    // A stored clip, its pages and the clip table are handed to the operating
    // system at once, so that a process killed afterwards leaves them readable
    // in its working directory for recovery.
    Flush();
    return clipID;
}

bool LxAudioFile::ReadClip(int clipID, ILxClipRecord& clip) {
    LxRecursiveLock guard(lock);
    if (!Map() || !Clip() || !Clip()->GetStream()) return false;
    std::optional<uint32_t> position = Map()->Find(clipID);
    if (!position) {
        LxAssertFailed("clip ID not found in file", kSourceFile, __LINE__);
        return false;
    }
    ILxReadWriteStream* stream = Clip()->GetStream();
    stream->Seek(*position, kLxSeekBegin);
    clip.ReadFromStream(*stream);
    return true;
}

void LxAudioFile::GetClipIDs(std::list<int>& clipIDs) {
    LxRecursiveLock guard(lock);
    if (Map()) Map()->GetClipIDs(clipIDs);
}

void LxAudioFile::AppendPage(const void* pcm, int pcmBytes, int channels, int sampleRate, int bitsPerSample,
                             int& pageID) {
    LxRecursiveLock guard(lock);
    pageID = -1;
    if (Pcm()) Pcm()->AppendPage(pcm, pcmBytes, channels, sampleRate, bitsPerSample, pageID);
}

void LxAudioFile::AppendSilentPage(int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID) {
    LxRecursiveLock guard(lock);
    pageID = -1;
    if (Pcm()) Pcm()->AppendSilentPage(pcmBytes, channels, sampleRate, bitsPerSample, pageID);
}

bool LxAudioFile::ReadPageHeader(int pageID, LxPCMData& record) {
    LxRecursiveLock guard(lock);
    if (!Pcm()) {
        record = LxPCMData();
        LxAssertFailed("", kSourceFile, __LINE__);
        return false;
    }
    return Pcm()->ReadPageHeader(pageID, record);
}

void LxAudioFile::ReadPageData(const LxPCMData& record, int wantedChannels, void* buffer, int bufferBytes,
                               int& bytesRead) {
    LxRecursiveLock guard(lock);
    if (Pcm()) Pcm()->ReadPageData(record, wantedChannels, buffer, bufferBytes, bytesRead);
}

bool LxAudioFile::ReadPage(int pageID, LxPCMData& record, void* buffer, int bufferBytes, int& bytesRead) {
    LxRecursiveLock guard(lock);
    bytesRead = 0;
    if (!Pcm()) {
        ReadPageHeader(pageID, record);  // reports the closed store
        return false;
    }
    if (!Pcm()->ReadPageHeader(pageID, record) || (record.channels != 1 && record.channels != 2)) return false;
    if (LxPageDecodeAhead::Decodable(record) && TwoCores()) {
        // A reader going through the pages in order decodes every other page
        // itself while the page after it is decoded ahead on another core.
        const LxPageDecodeAhead::Key key{pageID, GetPageEpoch(), record};
        if (decodeAhead && decodeAhead->Take(key, buffer, bufferBytes, bytesRead)) {
            DecodeAhead(pageID + 2 * kLxPageRecordBytes);
            return true;
        }
        DecodeAhead(pageID + kLxPageRecordBytes);
    }
    Pcm()->ReadPageData(record, record.channels, buffer, bufferBytes, bytesRead);
    return true;
}

bool LxAudioFile::TwoCores() {
    static const bool twoCores = std::thread::hardware_concurrency() > 1;
    return twoCores;
}

void LxAudioFile::DecodeAhead(int pageID) {
    if (pageID < kLxFirstOrdinaryPage || pageID > Pcm()->GetSize() - kLxPageRecordBytes) return;
    LxPageDecodeAhead::Key key{pageID, GetPageEpoch(), LxPCMData()};
    // Nobody asked for this page: whatever its record or data would report is
    // left for the read that does ask.
    LxQuietReports quiet;
    const int64_t reportsBefore = LxAssertReportCount();
    if (!Pcm()->ReadPageHeader(pageID, key.record) || !LxPageDecodeAhead::Decodable(key.record)) return;
    if (decodeAhead && decodeAhead->Holds(key)) return;
    std::vector<unsigned char> stored(static_cast<size_t>(std::min(key.record.dataRange.Size(), kLxMaxPageBytes)));
    const int got = Enc()->Read(key.record.dataRange, stored.data(), static_cast<int>(stored.size()));
    if (LxAssertReportCount() != reportsBefore) return;
    stored.resize(static_cast<size_t>(std::max(got, 0)));
    if (!decodeAhead) decodeAhead = std::make_unique<LxPageDecodeAhead>();
    decodeAhead->Begin(key, std::move(stored));
}

void LxAudioFile::ReadPageThumbnail(int pageID, void* buffer, int bufferBytes, int& bytesRead) {
    LxRecursiveLock guard(lock);
    if (Pcm()) Pcm()->ReadPageThumbnail(pageID, buffer, bufferBytes, bytesRead);
}

int LxAudioFile::CopyPageTo(int pageID, LxAudioFile& other) {
    // This store first, then the other: always in that order.
    LxRecursiveLock guard(lock);
    LxRecursiveLock otherGuard(other.lock);
    if (!Pcm() || !other.Pcm()) return -1;
    int newPageID = -1;
    Pcm()->CopyPageTo(pageID, *other.Pcm(), newPageID);
    return newPageID;
}

LxPageThumbnail* LxAudioFile::GetPageThumbnail(int pageID) {
    LxRecursiveLock guard(lock);
    return Pcm() ? thumbnails->Get(pageID, *Pcm()) : nullptr;
}

void LxAudioFile::ReleaseUnusedThumbnails() {
    LxRecursiveLock guard(lock);
    thumbnails->ReleaseUnused();
}

LxPageRange LxAudioFile::GetSilenceRange() const {
    LxRecursiveLock guard(lock);
    return silenceRange;
}

bool LxAudioFile::Compact(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress) {
    LxLock compressorGuard(compressorMutex);
    LxRecursiveLock guard(lock);
    // Compacting copies what the pages hold; from a damaged store it would
    // make a store that looks whole and is not.
    if (IsDamaged()) {
        LxAssertFailed(loadedDamaged ? "store was loaded damaged; not compacted"
                                     : "store damaged by a failed disk write; not compacted",
                       kSourceFile, __LINE__);
        return false;
    }
    LxAudioCompactor compactor(*this);
    const bool changed = compactor.Run(clipIDs, progress);
    if (changed) MarkIntact();
    return changed;
}

void LxAudioFile::Flush() {
    LxRecursiveLock guard(lock);
    if (members) members->Flush();
}

void LxAudioFile::Close() {
    LxRecursiveLock guard(lock);
    if (members) members->Close();
    ++pageEpoch;
}

void LxAudioFile::Clear() {
    LxRecursiveLock guard(lock);
    if (!members) return;
    members->Truncate();
    PagesReplaced();
    MarkIntact();
}

void LxAudioFile::DiscardRawData() {
    LxRecursiveLock guard(lock);
    if (!Raw()) return;
    Raw()->Truncate();
    Raw()->SetSavedLength(0);
}

bool LxAudioFile::RawDataUnreferenced() {
    if (!Pcm() || !Pcm()->GetStream()) return false;
    int size = Pcm()->GetSize();
    if (static_cast<int64_t>(Pcm()->GetCompressCursor()) < size) return false;
    // The compressor has visited every page, but a page it could not encode
    // stays raw: its bytes are still the only copy of that audio.
    LxPCMData record;
    for (int page = 0; page + kLxPageRecordBytes <= size; page += kLxPageRecordBytes) {
        if (Pcm()->ReadPageHeader(page, record) && record.codec == kLxPageCodecRaw) return false;
    }
    return true;
}

void LxAudioFile::GetMemberSizes(int sizes[5]) {
    LxRecursiveLock guard(lock);
    if (members) {
        members->GetSizes(sizes);
    } else {
        for (int i = 0; i < LxStoreMembers::kCount; ++i) sizes[i] = 0;
    }
}

int64_t LxAudioFile::GetRoomForPCM(int channels) {
    LxRecursiveLock guard(lock);
    if (!members || (channels != 1 && channels != 2)) return 0;
    // A full page writes its PCM to "raw.lxa", its thumbnail to "enc.lxa" and
    // its record to "pcm.lxa"; the member with the least room decides.
    const int64_t thumbnailBytes = (kLxMaxPageBytes / channels / 2 / kLxThumbnailFrames) * 4;
    const int64_t pages = std::min({members->Raw().GetRoom() / kLxMaxPageBytes,
                                    members->Enc().GetRoom() / thumbnailBytes,
                                    members->Pcm().GetRoom() / kLxPageRecordBytes});
    return std::max<int64_t>(0, pages) * kLxMaxPageBytes;
}

int64_t LxAudioFile::GetRoomRefusals() const {
    LxRecursiveLock guard(lock);
    if (!members) return 0;
    int64_t refusals = 0;
    for (int i = 0; i < LxStoreMembers::kCount; ++i) refusals += members->At(i).GetRoomRefusals();
    return refusals;
}

int64_t LxAudioFile::MemberFailures(bool writes) const { return members ? members->Failures(writes) : 0; }

bool LxAudioFile::IsDamaged() const {
    LxRecursiveLock guard(lock);
    // Failed reads count as well: what was read wrong (a clip table, a page)
    // may have been written back in another form since.
    return loadedDamaged || damageWatch->Count() > 0;
}

void LxAudioFile::MarkIntact() {
    damageWatch->Restart();
    loadedDamaged = false;
}

bool LxAudioFile::RefuseDamagedSave() const {
    if (!IsDamaged()) return false;
    LxAssertFailed(loadedDamaged ? "store was loaded damaged; not saved (salvage its clips into a new store)"
                                 : "store damaged by a failed disk write; not saved",
                   kSourceFile, __LINE__);
    return true;
}

bool LxAudioFile::WriteTo(ILxStream& out) { return LxStorePersistence(*this).WriteTo(out); }

bool LxAudioFile::ReadFrom(ILxStream& in) { return LxStorePersistence(*this).ReadFrom(in); }

bool LxAudioFile::WriteTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    return LxStorePersistence(*this).WriteTo(directoryOut, incremental, info);
}

bool LxAudioFile::ReadFrom(const LxFile& directoryIn) { return LxStorePersistence(*this).ReadFrom(directoryIn); }

bool LxAudioFile::WriteVerifiedTo(ILxStream& out) { return LxStorePersistence(*this).WriteVerifiedTo(out); }

bool LxAudioFile::WriteVerifiedTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    return LxStorePersistence(*this).WriteVerifiedTo(directoryOut, incremental, info);
}

bool LxAudioFile::ReadVerifiedFrom(ILxStream& in, LxAudioDamageReport& report) {
    return LxStorePersistence(*this).ReadVerifiedFrom(in, report);
}

bool LxAudioFile::ReadVerifiedFrom(const LxFile& directoryIn, LxAudioDamageReport& report) {
    return LxStorePersistence(*this).ReadVerifiedFrom(directoryIn, report);
}

bool LxAudioFile::ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report) {
    return LxStorePersistence(*this).ReadVerifiedInPlace(projectFile, report);
}

int LxAudioFile::SalvageInto(LxAudioFile& target, const LxAudioDamageReport& report, bool fillDamaged,
                             std::map<int, int>& idMap, std::set<int>& patched) {
    return LxStoreSalvager::Run(*this, target, report, fillDamaged, idMap, patched);
}

void LxAudioFile::AppendAudioFileFrom(LxAudioFile& other, std::map<int, int>& idMap) {
    LxRecursiveLock guard(lock);
    LxRecursiveLock otherGuard(other.lock);
    if (!Map() || !other.Map()) return;
    other.Flush();
    std::list<int> clipIDs;
    other.GetClipIDs(clipIDs);
    for (int oldID : clipIDs) {
        LxClipRecord original(&other);
        if (other.ReadClip(oldID, original)) {
            // Each range is checked once as it is read, and reported when broken.
            for (const LxPageRange& range : original.ranges) range.IsValid();
        }
        LxClipRecord copy(this);
        const int64_t refusals = GetRoomRefusals();
        for (const LxPageRange& range : original.ranges) {
            LxPageRange copied;
            if (range.startPage < 0 || range.endPage < range.startPage) LxAssertFailed("", kSourceFile, __LINE__);
            if (LxClipRecord::CopyRange(range, *this, copied)) copy.ranges.push_back(copied);
        }
        // A clip some of whose pages this store had no room for is not stored
        // short of them: it maps to -1.
        idMap[oldID] = GetRoomRefusals() == refusals ? WriteClip(copy) : -1;
    }
}

bool LxAudioFile::HasPagesToCompress() { return LxAudioCompressor(*this).HasPagesToCompress(); }

int LxAudioFile::CompressAllPages(ILxGeneralProgressCallBack* progress) {
    return LxAudioCompressor(*this).CompressAllPages(progress);
}

bool LxAudioFile::CompressOnePage() { return LxAudioCompressor(*this).CompressOnePage(); }

int LxAudioFile::CompressAllPagesInParallel(int threads, ILxGeneralProgressCallBack* progress) {
    return LxAudioCompressor(*this).CompressAllPagesInParallel(threads, progress);
}
