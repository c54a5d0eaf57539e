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
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxLock.h"
#include "LxPublic/LxRecursiveLock.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxPublic/LxZipUpdateInfo.h"
#include "LxStoreChecker.h"
#include "LxStoreIntegrityRecord.h"
#include "LxStoreMembers.h"
#include "LxStoreSalvager.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";


LxAudioFile::LxAudioFile(const LxFile& storeDirectory) : directory(storeDirectory), silenceRange(this) {
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
    thumbnailCache.clear();
    retiredThumbnails.clear();
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
    RenumberThumbnails(oldToNewPage);
    ++pageEpoch;
}

void LxAudioFile::PagesReplaced() {
    DropThumbnailCache();
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
    Pcm()->ReadPageData(record, record.channels, buffer, bufferBytes, bytesRead);
    return true;
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
    auto it = thumbnailCache.find(pageID);
    if (it != thumbnailCache.end()) return &it->second;
    if (!Pcm()) return nullptr;
    LxPCMData record;
    if (!Pcm()->ReadPageHeader(pageID, record)) return nullptr;
    int capacity = record.channels > 0 ? (1960 / record.channels) * 2 : 0;
    std::vector<unsigned char> bytes(static_cast<size_t>(std::max(capacity, 0)));
    int got = 0;
    if (capacity > 0) Pcm()->ReadPageThumbnail(pageID, bytes.data(), capacity, got);
    got = std::clamp(got, 0, capacity);
    LxPageThumbnail entry;
    entry.channels = record.channels;
    entry.sampleRate = record.sampleRate;
    entry.bitsPerSample = record.bitsPerSample;
    entry.points.resize(static_cast<size_t>(got / 4));
    for (size_t i = 0; i < entry.points.size(); ++i) {
        const unsigned char* p = bytes.data() + 4 * i;
        entry.points[i] = static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
                          (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
    }
    return &thumbnailCache.emplace(pageID, std::move(entry)).first->second;
}

void LxAudioFile::ReleaseUnusedThumbnails() {
    LxRecursiveLock guard(lock);
    for (auto it = thumbnailCache.begin(); it != thumbnailCache.end();) {
        it = it->second.useCount < 1 ? thumbnailCache.erase(it) : std::next(it);
    }
    retiredThumbnails.erase(std::remove_if(retiredThumbnails.begin(), retiredThumbnails.end(),
                                           [](const auto& node) { return node.mapped().useCount < 1; }),
                            retiredThumbnails.end());
}

void LxAudioFile::RenumberThumbnails(const std::map<int, int>& oldToNewPage) {
    // Entries move as map nodes, so clips that hold an entry keep a valid pointer.
    std::vector<std::map<int, LxPageThumbnail>::node_type> moved;
    while (!thumbnailCache.empty()) {
        auto node = thumbnailCache.extract(thumbnailCache.begin());
        auto target = oldToNewPage.find(node.key());
        if (target != oldToNewPage.end()) {
            node.key() = target->second;
            moved.push_back(std::move(node));
        } else if (node.mapped().useCount >= 1) {
            retiredThumbnails.push_back(std::move(node));
        }
    }
    for (auto& node : moved) thumbnailCache.insert(std::move(node));
}

void LxAudioFile::DropThumbnailCache() {
    // Entries that a clip still holds stay alive (the clip keeps a pointer to
    // them) until it lets go and ReleaseUnusedThumbnails frees them.
    while (!thumbnailCache.empty()) {
        auto node = thumbnailCache.extract(thumbnailCache.begin());
        if (node.mapped().useCount >= 1) retiredThumbnails.push_back(std::move(node));
    }
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

int64_t LxAudioFile::MemberFailures(bool writes) const { return members ? members->Failures(writes) : 0; }

bool LxAudioFile::IsDamaged() const {
    LxRecursiveLock guard(lock);
    // Failed reads count as well: what was read wrong (a clip table, a page)
    // may have been written back in another form since.
    return loadedDamaged || MemberFailures(true) + MemberFailures(false) > damageBaseline;
}

void LxAudioFile::MarkIntact() {
    damageBaseline = MemberFailures(true) + MemberFailures(false);
    loadedDamaged = false;
}

bool LxAudioFile::RefuseDamagedSave() const {
    if (!IsDamaged()) return false;
    LxAssertFailed(loadedDamaged ? "store was loaded damaged; not saved (salvage its clips into a new store)"
                                 : "store damaged by a failed disk write; not saved",
                   kSourceFile, __LINE__);
    return true;
}

bool LxAudioFile::WriteTo(ILxStream& out) {
    LxRecursiveLock guard(lock);
    // Once every page is compressed, "raw.lxa" holds nothing still referenced.
    if (RawDataUnreferenced()) DiscardRawData();
    if (!Map() || RefuseDamagedSave()) return false;
    const int64_t outFailures = out.GetWriteFailures();
    bool ok = Raw()->WriteTo(out);
    ok = Enc()->WriteTo(out) && ok;
    ok = Pcm()->WriteTo(out) && ok;
    ok = Clip()->WriteTo(out) && ok;
    ok = Map()->WriteTo(out) && ok;
    if (out.GetWriteFailures() != outFailures || IsDamaged()) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        ok = false;
    }
    return ok;
}

bool LxAudioFile::ReadFrom(ILxStream& in) {
    LxRecursiveLock guard(lock);
    if (!Map()) return false;
    // Check the five lengths against what the stream really holds before any
    // member is touched: a damaged stream leaves the store as it was.
    int64_t start = in.GetPosition();
    int64_t end = in.GetLength();
    int64_t position = start;
    int32_t lengths[5];
    for (int32_t& length : lengths) {
        in.Seek(position, kLxSeekBegin);
        if (position + 4 > end || !in.ReadInt32(length)) {
            LxAssertFailed("store stream ends before its last member", kSourceFile, __LINE__);
            in.Seek(start, kLxSeekBegin);
            return false;
        }
        if (length < 0 || position + 4 + length > end) {
            LxAssertFailed("store member is longer than the stream", kSourceFile, __LINE__);
            in.Seek(start, kLxSeekBegin);
            return false;
        }
        position += 4 + length;
    }
    in.Seek(start, kLxSeekBegin);
    const int64_t inFailures = in.GetReadFailures();
    const int64_t writeFailures = MemberFailures(true) + MemberFailures(false);
    bool ok = true;
    for (int i = 0; i < 5; ++i) {
        int32_t length = 0;
        in.ReadInt32(length);
        ok = members->At(i).ReadFrom(in, length) && ok;
    }
    Raw()->SetSavedLength(0);
    Enc()->SetSavedLength(0);
    Pcm()->SetCompressCursor(0);
    PagesReplaced();
    if (in.GetReadFailures() != inFailures || MemberFailures(true) + MemberFailures(false) != writeFailures) {
        // Members are half replaced: better an empty store than a wrong one.
        LxAssertFailed("disk failure while loading the store", kSourceFile, __LINE__);
        Clear();
        return false;
    }
    if (ok) MarkIntact();
    return ok;
}

bool LxAudioFile::WriteTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    LxRecursiveLock guard(lock);
    if (!SaveChunkFiles(directoryOut, incremental, info)) return false;
    // An integrity record of an earlier verified save no longer describes the chunks.
    LxFile stale = directoryOut.GetChild(LxStoreIntegrityRecord::kFileName);
    if (stale.Exists()) stale.Delete();
    return true;
}

bool LxAudioFile::SaveChunkFiles(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    if (RawDataUnreferenced()) DiscardRawData();
    if (!Map()) return false;
    if (!directoryOut.IsDirectory() && !directoryOut.CreateDirectories()) return false;
    if (RefuseDamagedSave()) return false;
    Raw()->Flush();
    Raw()->SetSavedLength(Raw()->SaveChunks(directoryOut, incremental ? Raw()->GetSavedLength() : 0, info));
    Enc()->Flush();
    Enc()->SetSavedLength(Enc()->SaveChunks(directoryOut, incremental ? Enc()->GetSavedLength() : 0, info));
    Pcm()->Flush();
    Pcm()->SaveChunks(directoryOut, -1, nullptr);
    Clip()->Flush();
    Clip()->SaveChunks(directoryOut, -1, nullptr);
    Map()->SaveWhole(directoryOut);
    if (IsDamaged()) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        return false;
    }
    return true;
}

bool LxAudioFile::ReadFrom(const LxFile& directoryIn) {
    LxRecursiveLock guard(lock);
    if (!Map()) return false;
    if (!directoryIn.IsDirectory()) return false;
    // Check every member's chunk files before any member is touched: a damaged
    // directory leaves the store as it was.
    for (int i = 0; i < LxStoreMembers::kCount; ++i) {
        int64_t length = 0;
        if (!LxMemberStream::CheckChunks(directoryIn, LxStoreMembers::Name(i), length)) {
            LxAssertFailed("saved store member is incomplete", kSourceFile, __LINE__);
            return false;
        }
    }
    const int64_t writeFailures = MemberFailures(true) + MemberFailures(false);
    Raw()->SetSavedLength(Raw()->LoadChunks(directoryIn));
    Enc()->SetSavedLength(Enc()->LoadChunks(directoryIn));
    Pcm()->LoadChunks(directoryIn);
    Clip()->LoadChunks(directoryIn);
    Map()->LoadWhole(directoryIn);
    Pcm()->SetCompressCursor(0);
    PagesReplaced();
    if (MemberFailures(true) + MemberFailures(false) != writeFailures) {
        LxAssertFailed("disk failure while loading the store", kSourceFile, __LINE__);
        Clear();
        return false;
    }
    MarkIntact();
    return true;
}

bool LxAudioFile::FinishLoad(int64_t failuresBefore) {
    Pcm()->SetCompressCursor(0);
    PagesReplaced();
    if (MemberFailures(true) + MemberFailures(false) != failuresBefore) {
        LxAssertFailed("disk failure while loading the store", kSourceFile, __LINE__);
        Clear();
        return false;
    }
    MarkIntact();
    return true;
}

bool LxAudioFile::CheckLoaded(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report) {
    report.loaded = true;
    report.verified = record != nullptr;
    LxStoreChecker(*this).Check(record, report);
    loadedDamaged = report.IsDamaged();
    return !loadedDamaged;
}

bool LxAudioFile::WriteVerifiedTo(ILxStream& out) {
    LxRecursiveLock guard(lock);
    if (!WriteTo(out)) return false;
    const std::vector<unsigned char> bytes = LxStoreChecker(*this).Digest().Serialize();
    const int64_t failures = out.GetWriteFailures();
    const bool written = out.Write(bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size());
    if (!written || out.GetWriteFailures() != failures) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        return false;
    }
    return true;
}

bool LxAudioFile::WriteVerifiedTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    LxRecursiveLock guard(lock);
    if (!SaveChunkFiles(directoryOut, incremental, info)) return false;
    const std::vector<unsigned char> bytes = LxStoreChecker(*this).Digest().Serialize();
    const LxFile record = directoryOut.GetChild(LxStoreIntegrityRecord::kFileName);
    LxString partName(LxStoreIntegrityRecord::kFileName);
    partName += ".new";
    const LxFile part = directoryOut.GetChild(partName);
    const bool existed = record.Exists();
    bool written = false;
    {
        std::unique_ptr<ILxReadWriteStream> out =
            LxStreamUtil::CreateFileStreamReadWrite(part, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (out) {
            out->SetWriting(true);
            written = out->Write(bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size()) &&
                      out->Sync() && out->GetWriteFailures() == 0;
        }
    }
    if (!written || !part.RenameTo(record)) {
        part.Delete();
        LxAssertFailed("disk failure while saving the store's integrity record", kSourceFile, __LINE__);
        return false;
    }
    if (info) (existed ? info->changedFiles : info->addedFiles).push_back(record.GetName());
    return true;
}

bool LxAudioFile::ReadVerifiedFrom(ILxStream& in, LxAudioDamageReport& report) {
    LxRecursiveLock guard(lock);
    report = LxAudioDamageReport();
    if (!Map()) return false;
    const int64_t start = in.GetPosition();
    const int64_t end = in.GetLength();
    auto readAt = [&](int64_t at, unsigned char* buffer, int64_t bytes) {
        return at >= start && bytes >= 0 && bytes <= end - at && in.Seek(at, kLxSeekBegin) &&
               in.Read(buffer, static_cast<int>(bytes)) == bytes;
    };
    auto word = [](const unsigned char* p) { return static_cast<int32_t>(LxStreamUtil::GetLe32(p)); };
    // The five lengths, as far as they fit the stream.
    int64_t lengths[5] = {0, 0, 0, 0, 0};
    int walked = 0;
    int64_t position = start;
    for (unsigned char w[4]; walked < 5; ++walked) {
        if (!readAt(position, w, 4)) break;
        const int32_t length = word(w);
        if (length < 0 || length > end - position - 4) break;
        lengths[walked] = length;
        position += 4 + length;
    }
    // The integrity record: right after the fifth member, or else found from
    // the end of the stream when a damaged length hides where the members end.
    LxStoreIntegrityRecord record;
    bool haveRecord = false;
    std::string why;
    auto recordAt = [&](int64_t at, uint64_t bytes) {
        if (at < start || bytes > static_cast<uint64_t>(end - at)) return false;
        std::vector<unsigned char> buffer(static_cast<size_t>(bytes));
        return readAt(at, buffer.data(), static_cast<int64_t>(bytes)) &&
               LxStoreIntegrityRecord::Parse(buffer.data(), buffer.size(), record, why);
    };
    unsigned char edge[LxStoreIntegrityRecord::kFooterBytes];
    uint64_t recordBytes = 0;
    if (walked == 5 && position < end) {
        why = "bytes after the store are not an integrity record";
        if (readAt(position, edge, LxStoreIntegrityRecord::kHeaderBytes) &&
            LxStoreIntegrityRecord::LooksLikeHeader(edge, LxStoreIntegrityRecord::kHeaderBytes, recordBytes)) {
            why = "the integrity record is cut short or followed by other bytes";
            haveRecord = position + static_cast<int64_t>(recordBytes) == end && recordAt(position, recordBytes);
        }
    }
    if (!haveRecord && readAt(end - LxStoreIntegrityRecord::kFooterBytes, edge, LxStoreIntegrityRecord::kFooterBytes)) {
        recordBytes = LxStoreIntegrityRecord::LengthFromFooter(edge);
        if (recordBytes > 0 && recordBytes <= static_cast<uint64_t>(end - start) &&
            recordAt(end - static_cast<int64_t>(recordBytes), recordBytes)) {
            // Its lengths must account for exactly what lies before it.
            int64_t members = 0;
            for (const LxStoreIntegrityRecord::Member& member : record.members) members += 4 + int64_t{member.length};
            haveRecord = start + members == end - static_cast<int64_t>(recordBytes);
            if (!haveRecord) why = "the integrity record does not fit the stream's layout";
        }
        if (!haveRecord && walked == 5 && position == end) why.clear();  // a store saved without a record
    }
    if (haveRecord) {
        int64_t at = start;
        for (int i = 0; i < 5; ++i) {
            unsigned char w[4] = {};
            readAt(at, w, 4);
            lengths[i] = record.members[i].length;
            if (word(w) != static_cast<int32_t>(lengths[i])) {
                report.damage.push_back({LxStoreMembers::Name(i), -1, "",
                                         "its length field says " + std::to_string(word(w)) + ", " +
                                             std::to_string(lengths[i]) + " saved"});
            }
            at += 4 + lengths[i];
        }
    } else {
        if (walked == 0) {
            report.damage.push_back({"", -1, "", "not an audio store (its first length does not fit the stream)"});
            in.Seek(start, kLxSeekBegin);
            return false;
        }
        if (!why.empty()) report.damage.push_back({"", -1, "", why});
        if (walked < 5) {
            // Cut short (a truncated file, a damaged length): the member that does
            // not fit is loaded as far as the stream goes, those after it are lost.
            const int64_t left = std::max<int64_t>(0, end - position - 4);
            report.damage.push_back({LxStoreMembers::Name(walked), -1, "",
                                     "the stream ends inside it (" + std::to_string(left) +
                                         " bytes left for it; the members after it are lost)"});
            lengths[walked] = left;
        }
    }
    const int64_t failures = MemberFailures(true) + MemberFailures(false);
    int64_t at = start;
    for (int i = 0; i < 5; ++i) {
        const int64_t length = std::clamp<int64_t>(std::min<int64_t>(lengths[i], end - at - 4), 0, INT32_MAX);
        if (haveRecord && length < lengths[i]) {
            report.damage.push_back({LxStoreMembers::Name(i), -1, "", "the stream ends inside it"});
        }
        in.Seek(at + 4, kLxSeekBegin);
        members->At(i).ReadFrom(in, static_cast<int>(length));
        at += 4 + lengths[i];
    }
    in.Seek(end, kLxSeekBegin);
    Raw()->SetSavedLength(0);
    Enc()->SetSavedLength(0);
    if (!FinishLoad(failures)) {
        report.damage.push_back({"", -1, "", "a disk failure while loading"});
        return false;
    }
    return CheckLoaded(haveRecord ? &record : nullptr, report);
}

bool LxAudioFile::ReadVerifiedFrom(const LxFile& directoryIn, LxAudioDamageReport& report) {
    LxRecursiveLock guard(lock);
    report = LxAudioDamageReport();
    if (!Map()) return false;
    const LxFile recordFile = directoryIn.GetChild(LxStoreIntegrityRecord::kFileName);
    LxStoreIntegrityRecord record;
    bool haveRecord = false;
    if (recordFile.Exists()) {
        std::string why = "cannot be read";
        std::unique_ptr<ILxReadWriteStream> in = LxStreamUtil::CreateFileStreamRead(recordFile);
        const int64_t length = in ? in->GetLength() : -1;
        if (in && length > 0 && length <= INT32_MAX) {
            std::vector<unsigned char> bytes(static_cast<size_t>(length));
            haveRecord = in->Read(bytes.data(), static_cast<int>(length)) == length &&
                         LxStoreIntegrityRecord::Parse(bytes.data(), bytes.size(), record, why);
        }
        if (!haveRecord) report.damage.push_back({"", -1, LxStoreIntegrityRecord::kFileName, why});
    }
    if (!haveRecord && !directoryIn.GetChild("pcm.lxa1").Exists() && !directoryIn.GetChild("pcm.lxa0").Exists()) {
        report.damage.push_back({"", -1, "", "no audio store in " + directoryIn.GetPath().str()});
        return false;
    }
    const int64_t failures = MemberFailures(true) + MemberFailures(false);
    for (int i = 0; i < 5; ++i) {
        std::vector<uint32_t> saved;
        for (const LxStoreIntegrityRecord::Chunk& chunk : record.members[i].chunks) saved.push_back(chunk.length);
        members->At(i).LoadChunksChecked(directoryIn, haveRecord ? &saved : nullptr, report.damage);
    }
    Map()->Load();
    Raw()->SetSavedLength(Raw()->GetSize());
    Enc()->SetSavedLength(Enc()->GetSize());
    if (!FinishLoad(failures)) {
        report.damage.push_back({"", -1, "", "a disk failure while loading"});
        return false;
    }
    return CheckLoaded(haveRecord ? &record : nullptr, report);
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
        for (const LxPageRange& range : original.ranges) {
            LxPageRange copied;
            if (range.startPage < 0 || range.endPage < range.startPage) LxAssertFailed("", kSourceFile, __LINE__);
            if (LxClipRecord::CopyRange(range, *this, copied)) copy.ranges.push_back(copied);
        }
        idMap[oldID] = WriteClip(copy);
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
