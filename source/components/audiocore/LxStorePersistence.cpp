#include "LxStorePersistence.h"

#include <algorithm>
#include "LxAudioFile.h"
#include "LxPublic/LxFailureWatch.h"
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
#include "LxStorePersistence.h"
#include "LxStoreSalvager.h"

// Reports keep the name of the file that saved and loaded stores before this class did.
static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

bool LxStorePersistence::WriteTo(ILxStream& out) {
    LxRecursiveLock guard(store.lock);
    // Once every page is compressed, "raw.lxa" holds nothing still referenced.
    if (store.RawDataUnreferenced()) store.DiscardRawData();
    if (!store.Map() || store.RefuseDamagedSave()) return false;
    LxFailureWatch outWatch(out, LxFailureWatch::kWrites);
    bool ok = store.Raw()->WriteTo(out);
    ok = store.Enc()->WriteTo(out) && ok;
    ok = store.Pcm()->WriteTo(out) && ok;
    ok = store.Clip()->WriteTo(out) && ok;
    ok = store.Map()->WriteTo(out) && ok;
    if (outWatch.Failed() || store.IsDamaged()) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        ok = false;
    }
    return ok;
}

bool LxStorePersistence::ReadFrom(ILxStream& in) {
    LxRecursiveLock guard(store.lock);
    if (!store.Map()) return false;
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
    LxFailureWatch inWatch(in, LxFailureWatch::kReads);
    LxFailureWatch memberWatch = WatchMembers();
    bool ok = true;
    for (int i = 0; i < 5; ++i) {
        int32_t length = 0;
        in.ReadInt32(length);
        ok = store.members->At(i).ReadFrom(in, length) && ok;
    }
    store.Raw()->SetSavedLength(0);
    store.Enc()->SetSavedLength(0);
    store.Pcm()->SetCompressCursor(0);
    store.PagesReplaced();
    if (inWatch.Failed() || memberWatch.Failed()) {
        // Members are half replaced: better an empty store than a wrong one.
        LxAssertFailed("disk failure while loading the store", kSourceFile, __LINE__);
        store.Clear();
        return false;
    }
    if (ok) store.MarkIntact();
    return ok;
}

bool LxStorePersistence::WriteTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    LxRecursiveLock guard(store.lock);
    if (!SaveChunkFiles(directoryOut, incremental, info)) return false;
    // An integrity record of an earlier verified save no longer describes the chunks.
    LxFile stale = directoryOut.GetChild(LxStoreIntegrityRecord::kFileName);
    if (stale.Exists()) stale.Delete();
    return true;
}

bool LxStorePersistence::SaveChunkFiles(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    if (store.RawDataUnreferenced()) store.DiscardRawData();
    if (!store.Map()) return false;
    if (!directoryOut.IsDirectory() && !directoryOut.CreateDirectories()) return false;
    if (store.RefuseDamagedSave()) return false;
    store.Raw()->Flush();
    store.Raw()->SetSavedLength(store.Raw()->SaveChunks(directoryOut, incremental ? store.Raw()->GetSavedLength() : 0, info));
    store.Enc()->Flush();
    store.Enc()->SetSavedLength(store.Enc()->SaveChunks(directoryOut, incremental ? store.Enc()->GetSavedLength() : 0, info));
    store.Pcm()->Flush();
    store.Pcm()->SaveChunks(directoryOut, -1, nullptr);
    store.Clip()->Flush();
    store.Clip()->SaveChunks(directoryOut, -1, nullptr);
    store.Map()->SaveWhole(directoryOut);
    if (store.IsDamaged()) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        return false;
    }
    return true;
}

bool LxStorePersistence::ReadFrom(const LxFile& directoryIn) {
    LxRecursiveLock guard(store.lock);
    if (!store.Map()) return false;
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
    LxFailureWatch memberWatch = WatchMembers();
    store.Raw()->SetSavedLength(store.Raw()->LoadChunks(directoryIn));
    store.Enc()->SetSavedLength(store.Enc()->LoadChunks(directoryIn));
    store.Pcm()->LoadChunks(directoryIn);
    store.Clip()->LoadChunks(directoryIn);
    store.Map()->LoadWhole(directoryIn);
    return FinishLoad(memberWatch);
}

LxFailureWatch LxStorePersistence::WatchMembers() const {
    return LxFailureWatch([this] { return store.MemberFailures(true) + store.MemberFailures(false); });
}

bool LxStorePersistence::FinishLoad(const LxFailureWatch& memberWatch) {
    store.Pcm()->SetCompressCursor(0);
    store.PagesReplaced();
    if (memberWatch.Failed()) {
        LxAssertFailed("disk failure while loading the store", kSourceFile, __LINE__);
        store.Clear();
        return false;
    }
    store.MarkIntact();
    return true;
}

bool LxStorePersistence::CheckLoaded(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report) {
    report.loaded = true;
    report.verified = record != nullptr;
    LxStoreChecker(store).Check(record, report);
    store.loadedDamaged = report.IsDamaged();
    return !store.loadedDamaged;
}

bool LxStorePersistence::WriteVerifiedTo(ILxStream& out) {
    LxRecursiveLock guard(store.lock);
    if (!WriteTo(out)) return false;
    const std::vector<unsigned char> bytes = LxStoreChecker(store).Digest().Serialize();
    LxFailureWatch outWatch(out, LxFailureWatch::kWrites);
    const bool written = out.Write(bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size());
    if (!written || outWatch.Failed()) {
        LxAssertFailed("disk failure while saving the store", kSourceFile, __LINE__);
        return false;
    }
    return true;
}

bool LxStorePersistence::WriteVerifiedTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info) {
    LxRecursiveLock guard(store.lock);
    if (!SaveChunkFiles(directoryOut, incremental, info)) return false;
    const std::vector<unsigned char> bytes = LxStoreChecker(store).Digest().Serialize();
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

bool LxStorePersistence::ReadVerifiedFrom(ILxStream& in, LxAudioDamageReport& report) {
    return ReadVerifiedStream(in, nullptr, report);
}

bool LxStorePersistence::ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report) {
    std::shared_ptr<ILxReadWriteStream> in = LxStreamUtil::CreateFileStreamRead(projectFile);
    if (!in) {
        report = LxAudioDamageReport();
        report.damage.push_back({"", -1, "", "cannot read " + projectFile.GetPath().str()});
        return false;
    }
    return ReadVerifiedStream(*in, in, report);
}

bool LxStorePersistence::ReadVerifiedStream(ILxStream& in, const std::shared_ptr<ILxReadWriteStream>& inPlace,
                                            LxAudioDamageReport& report) {
    LxRecursiveLock guard(store.lock);
    report = LxAudioDamageReport();
    if (!store.Map()) return false;
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
    LxFailureWatch memberWatch = WatchMembers();
    int64_t at = start;
    for (int i = 0; i < 5; ++i) {
        const int64_t length = std::clamp<int64_t>(std::min<int64_t>(lengths[i], end - at - 4), 0, INT32_MAX);
        if (haveRecord && length < lengths[i]) {
            report.damage.push_back({LxStoreMembers::Name(i), -1, "", "the stream ends inside it"});
        }
        if (inPlace && (i == LxStoreMembers::kRaw || i == LxStoreMembers::kEnc)) {
            // The audio stays where it is; the small members are copied, since
            // pages records and the clip table change in place.
            store.members->At(i).ReadInPlace(inPlace, at + 4, static_cast<int>(length));
        } else {
            in.Seek(at + 4, kLxSeekBegin);
            store.members->At(i).ReadFrom(in, static_cast<int>(length));
        }
        at += 4 + lengths[i];
    }
    in.Seek(end, kLxSeekBegin);
    store.Raw()->SetSavedLength(0);
    store.Enc()->SetSavedLength(0);
    if (!FinishLoad(memberWatch)) {
        report.damage.push_back({"", -1, "", "a disk failure while loading"});
        return false;
    }
    return CheckLoaded(haveRecord ? &record : nullptr, report);
}

bool LxStorePersistence::ReadVerifiedFrom(const LxFile& directoryIn, LxAudioDamageReport& report) {
    LxRecursiveLock guard(store.lock);
    report = LxAudioDamageReport();
    if (!store.Map()) return false;
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
    LxFailureWatch memberWatch = WatchMembers();
    for (int i = 0; i < 5; ++i) {
        std::vector<uint32_t> saved;
        for (const LxStoreIntegrityRecord::Chunk& chunk : record.members[i].chunks) saved.push_back(chunk.length);
        store.members->At(i).LoadChunksChecked(directoryIn, haveRecord ? &saved : nullptr, report.damage);
    }
    store.Map()->Load();
    store.Raw()->SetSavedLength(store.Raw()->GetSize());
    store.Enc()->SetSavedLength(store.Enc()->GetSize());
    if (!FinishLoad(memberWatch)) {
        report.damage.push_back({"", -1, "", "a disk failure while loading"});
        return false;
    }
    return CheckLoaded(haveRecord ? &record : nullptr, report);
}

