#include "LxAudioCompactor.h"

#include <algorithm>
#include <optional>
#include "LxAudioConstants.h"
#include "LxAudioFile.h"
#include "LxClipDataStream.h"
#include "LxClipMapStream.h"
#include "LxClipRecord.h"
#include "LxDataStream.h"
#include "LxPCMDataStream.h"
#include "LxStoreMembers.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFailureWatch.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

namespace {


// Calls on an optional progress receiver; EndTask at most once, and only after
// a task began.
class Progress {
public:
    explicit Progress(ILxGeneralProgressCallBack* target) : receiver(target) {}
    ~Progress() { End(); }
    void Begin(const char* key, int total) {
        if (!receiver) return;
        if (!begun) {
            receiver->BeginTask(key, total, 0);
            begun = true;
        } else {
            receiver->BeginNextTask(key, total);
        }
    }
    void Report(int done) {
        if (receiver && begun) receiver->ReportProgress(done);
    }
    void End() {
        if (receiver && begun && !ended) {
            ended = true;
            receiver->EndTask();
        }
    }

private:
    ILxGeneralProgressCallBack* receiver;
    bool begun = false;
    bool ended = false;
};

}  // namespace

LxAudioCompactor::LxAudioCompactor(LxAudioFile& file) : store(file) {}

LxAudioCompactor::~LxAudioCompactor() { DiscardFreshStreams(); }

bool LxAudioCompactor::Run(std::list<int>& clipIDs, ILxGeneralProgressCallBack* receiver) {
    LxRecursiveLock lock(store.lock);
    if (!store.IsOpen()) return false;
    int tableCount = store.Map()->GetCount();
    if (clipIDs.empty()) {
        if (tableCount == 0) return false;
        store.Clear();
        store.ReserveSilence();
        return true;
    }
    // Every stored clip is in use: nothing to gain. Only the counts are compared.
    if (static_cast<int>(clipIDs.size()) == tableCount) return false;

    LxFailureWatch readWatch([this] { return store.MemberFailures(false); });
    Progress progress(receiver);
    std::list<int> tableIDs;
    store.Map()->GetClipIDs(tableIDs);
    progress.Begin("kLxDiscoverUnreachAudio", static_cast<int>(tableIDs.size()));
    int pcmSize = store.Pcm()->GetSize();
    int done = 0;
    for (int id : tableIDs) {
        if (id != -1 && std::find(clipIDs.begin(), clipIDs.end(), id) != clipIDs.end()) {
            LxClipRecord clip(&store);
            store.ReadClip(id, clip);
            for (const LxPageRange& range : clip.ranges) {
                // Bounded by the records that exist, whatever a damaged range says.
                int last = std::min(range.endPage, pcmSize - kLxPageRecordBytes);
                for (int page = std::max(range.startPage, kLxFirstOrdinaryPage); page <= last;
                     page += kLxPageRecordBytes) {
                    if ((page - kLxFirstOrdinaryPage) % kLxPageRecordBytes == 0) reachable.insert(page);
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
    int pages = pcmSize / kLxPageRecordBytes - kLxReservedSilentPages;
    if (pages <= 0 || pages == static_cast<int>(reachable.size())) return false;

    OpenFreshStreams();
    if (!fresh || !fresh->Pcm().GetStream()) {
        DiscardFreshStreams();
        return false;
    }
    progress.Begin("kLxCompactingAudio", pages);
    int dropped = 0;
    bool previousCopied = true;
    done = 0;
    for (int page = kLxFirstOrdinaryPage; page < pcmSize; page += kLxPageRecordBytes) {
        int newPage = -1;
        if (reachable.count(page)) store.Pcm()->CopyPageTo(page, fresh->Pcm(), newPage);
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
        std::optional<uint32_t> position = store.Map()->Find(id);
        if (!position || *position == 0xFFFFFFFFu) {
            DiscardFreshStreams();
            return false;
        }
        ILxReadWriteStream* oldClips = store.Clip()->GetStream();
        ILxReadWriteStream* newClips = fresh->Clip().GetStream();
        LxClipRecord clip(&store);
        oldClips->Seek(*position, kLxSeekBegin);
        clip.ReadFromStream(*oldClips);
        // Each range is checked once as it is read, and reported when broken.
        for (const LxPageRange& range : clip.ranges) range.IsValid();
        LxClipRecord::ApplyCorrection(clip.ranges, correction);
        newClips->Seek(0, kLxSeekEnd);
        auto newPosition = static_cast<uint32_t>(newClips->GetPosition());
        clip.WriteToStream(*newClips);
        int newID = fresh->Map().GetNextClipID();
        fresh->Map()[newID] = newPosition;
        newIDs.push_back(newID);
        progress.Report(++done);
    }
    // A page that could not be read, or a fresh member that could not be
    // written, would make the compacted store lie: keep the store as it was.
    // The fresh members were made by this run: any failed write of theirs counts.
    if (fresh->Failures(true) > 0 || readWatch.Failed()) {
        LxAssertFailed("disk failure while compacting; the store is kept as it was", kSourceFile, __LINE__);
        return false;
    }
    clipIDs = newIDs;
    Swap();
    return true;
}

void LxAudioCompactor::Swap() {
    store.ReplaceMembers(std::move(fresh), renumbered);
    // The fresh files have moved out: the next compaction finds "compact" empty.
    LxFileUtil::DeleteDirectory(store.directory.GetChild("compact"), false);
}

void LxAudioCompactor::OpenFreshStreams() {
    LxFile directory = store.directory.GetChild("compact");
    directory.CreateDirectories();
    fresh = std::make_unique<LxStoreMembers>(directory);
    // Whatever an interrupted earlier run left there is not part of any store.
    fresh->Truncate();
    for (int i = 0; i < kLxReservedSilentPages; ++i) {
        int page = -1;
        fresh->Pcm().AppendSilentPage(kLxMaxPageBytes, 1, kLxFrameRate, kLxBitsPerSample, page);
    }
}

void LxAudioCompactor::DiscardFreshStreams() {
    // Destroying the members deletes their files.
    fresh.reset();
}
