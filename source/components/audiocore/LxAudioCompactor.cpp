#include "LxAudioCompactor.h"

#include <algorithm>
#include <optional>
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxClipDataStream.h"
#include "LxClipMapStream.h"
#include "LxDataStream.h"
#include "LxPCMDataStream.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

namespace {

constexpr int kReservedPages = 5;
constexpr int kFirstOrdinaryPage = kReservedPages * kLxPageRecordBytes;  // 180

// Calls on an optional progress receiver; EndTask at most once, and only after
// a task began.
class Progress {
public:
    explicit Progress(ILxGeneralProgressCallBack* receiver) : receiver_(receiver) {}
    ~Progress() { End(); }
    void Begin(const char* key, int total) {
        if (!receiver_) return;
        if (!begun_) {
            receiver_->BeginTask(key, total, 0);
            begun_ = true;
        } else {
            receiver_->BeginNextTask(key, total);
        }
    }
    void Report(int done) {
        if (receiver_ && begun_) receiver_->ReportProgress(done);
    }
    void End() {
        if (receiver_ && begun_ && !ended_) {
            ended_ = true;
            receiver_->EndTask();
        }
    }

private:
    ILxGeneralProgressCallBack* receiver_;
    bool begun_ = false;
    bool ended_ = false;
};

}  // namespace

LxAudioCompactor::LxAudioCompactor(LxAudioFile& file) : store(file) {}

LxAudioCompactor::~LxAudioCompactor() { DiscardFreshStreams(); }

bool LxAudioCompactor::Run(std::list<int>& clipIDs, ILxGeneralProgressCallBack* receiver) {
    LxRecursiveLock lock(store.lock);
    if (!store.IsOpen()) return false;
    int tableCount = store.mapStream->GetCount();
    if (clipIDs.empty()) {
        if (tableCount == 0) return false;
        store.Clear();
        store.ReserveSilence();
        return true;
    }
    // Every stored clip is in use: nothing to gain. Only the counts are compared.
    if (static_cast<int>(clipIDs.size()) == tableCount) return false;

    const int64_t readFailures = store.MemberFailures(false);
    Progress progress(receiver);
    std::list<int> tableIDs;
    store.mapStream->GetClipIDs(tableIDs);
    progress.Begin("kLxDiscoverUnreachAudio", static_cast<int>(tableIDs.size()));
    int pcmSize = store.pcmStream->GetSize();
    int done = 0;
    for (int id : tableIDs) {
        if (id != -1 && std::find(clipIDs.begin(), clipIDs.end(), id) != clipIDs.end()) {
            LxAudioClipBase clip(store, -1);
            store.ReadClip(id, clip);
            for (const LxPageRange& range : clip.GetPageRanges()) {
                // Bounded by the records that exist, whatever a damaged range says.
                int last = std::min(range.endPage, pcmSize - kLxPageRecordBytes);
                for (int page = std::max(range.startPage, kFirstOrdinaryPage); page <= last;
                     page += kLxPageRecordBytes) {
                    if ((page - kFirstOrdinaryPage) % kLxPageRecordBytes == 0) reachable.insert(page);
                }
            }
        }
        progress.Report(++done);
    }
    if (reachable.empty()) {
        store.Clear();
        store.ReserveSilence();
        return true;
    }
    int pages = pcmSize / kLxPageRecordBytes - kReservedPages;
    if (pages <= 0 || pages == static_cast<int>(reachable.size())) return false;

    OpenFreshStreams();
    if (!freshPcm || !freshPcm->GetStream()) {
        DiscardFreshStreams();
        return false;
    }
    progress.Begin("kLxCompactingAudio", pages);
    int dropped = 0;
    bool previousCopied = true;
    done = 0;
    for (int page = kFirstOrdinaryPage; page < pcmSize; page += kLxPageRecordBytes) {
        int newPage = -1;
        if (reachable.count(page)) store.pcmStream->CopyPageTo(page, *freshPcm, newPage);
        bool copied = newPage != -1;
        if (copied) {
            renumbered[page] = newPage;
            if (!previousCopied) correction[page] = dropped * kLxPageRecordBytes;
        } else {
            ++dropped;
        }
        previousCopied = copied;
        progress.Report(++done);
    }
    if (dropped == 0) {
        DiscardFreshStreams();
        return false;
    }
    progress.Begin("kLxUpdateClips", static_cast<int>(clipIDs.size()));
    // Live clips are rewritten with corrected pages under new IDs 1, 2, 3, ...
    // in list order. The list is changed only once every clip was rewritten.
    std::list<int> newIDs;
    done = 0;
    for (int id : clipIDs) {
        std::optional<uint32_t> position = store.mapStream->Find(id);
        if (!position || *position == 0xFFFFFFFFu) {
            DiscardFreshStreams();
            return false;
        }
        ILxReadWriteStream* oldClips = store.clipStream->GetStream();
        ILxReadWriteStream* newClips = freshClip->GetStream();
        LxAudioClip clip(store, -1);
        oldClips->Seek(*position, kLxSeekBegin);
        clip.ReadFromStream(*oldClips);
        clip.ApplyCorrection(correction);
        newClips->Seek(0, kLxSeekEnd);
        auto newPosition = static_cast<uint32_t>(newClips->GetPosition());
        clip.WriteToStream(*newClips);
        int newID = freshMap->GetNextClipID();
        (*freshMap)[newID] = newPosition;
        newIDs.push_back(newID);
        progress.Report(++done);
    }
    // A page that could not be read, or a fresh member that could not be
    // written, would make the compacted store lie: keep the store as it was.
    int64_t freshFailures = 0;
    for (LxMemberStream* fresh : {static_cast<LxMemberStream*>(freshRaw.get()), static_cast<LxMemberStream*>(freshEnc.get()),
                                  static_cast<LxMemberStream*>(freshPcm.get()), static_cast<LxMemberStream*>(freshClip.get()),
                                  static_cast<LxMemberStream*>(freshMap.get())}) {
        if (fresh) freshFailures += fresh->GetFailures(true);
    }
    if (freshFailures > 0 || store.MemberFailures(false) != readFailures) {
        LxAssertFailed("disk failure while compacting; the store is kept as it was", kSourceFile, __LINE__);
        return false;
    }
    clipIDs = newIDs;
    Swap();
    return true;
}

void LxAudioCompactor::Swap() {
    // Old member objects delete their files as they go; the fresh members then
    // move into the store's directory, so the next compaction finds the
    // "compact" directory empty again.
    store.rawStream = std::move(freshRaw);
    store.encStream = std::move(freshEnc);
    store.pcmStream = std::move(freshPcm);
    store.clipStream = std::move(freshClip);
    store.mapStream = std::move(freshMap);
    store.mapStream->Save();
    store.rawStream->MoveTo(store.directory.GetChild("raw.lxa"));
    store.encStream->MoveTo(store.directory.GetChild("enc.lxa"));
    store.pcmStream->MoveTo(store.directory.GetChild("pcm.lxa"));
    store.clipStream->MoveTo(store.directory.GetChild("clip.lxa"));
    store.mapStream->MoveTo(store.directory.GetChild("map.lxa"));
    LxFileUtil::DeleteDirectory(store.directory.GetChild("compact"), false);
    store.RenumberThumbnails(renumbered);
}

void LxAudioCompactor::OpenFreshStreams() {
    LxFile directory = store.directory.GetChild("compact");
    directory.CreateDirectories();
    freshRaw = std::make_unique<LxDataStream>(directory.GetChild("raw.lxa"), "raw.lxa");
    freshEnc = std::make_unique<LxDataStream>(directory.GetChild("enc.lxa"), "enc.lxa");
    freshPcm = std::make_unique<LxPCMDataStream>(directory.GetChild("pcm.lxa"), freshRaw.get(), freshEnc.get());
    freshClip = std::make_unique<LxClipDataStream>(directory.GetChild("clip.lxa"), freshPcm.get());
    freshMap = std::make_unique<LxClipMapStream>(directory.GetChild("map.lxa"));
    // Whatever an interrupted earlier run left there is not part of any store.
    freshRaw->Truncate();
    freshEnc->Truncate();
    freshPcm->Truncate();
    freshClip->Truncate();
    freshMap->Truncate();
    freshMap->Clear();
    for (int i = 0; i < kReservedPages; ++i) {
        int page = -1;
        freshPcm->AppendSilentPage(176400, 1, 44100, 16, page);
    }
}

void LxAudioCompactor::DiscardFreshStreams() {
    // Destroying a member stream deletes its file.
    freshMap.reset();
    freshClip.reset();
    freshPcm.reset();
    freshEnc.reset();
    freshRaw.reset();
}
