#include "LxAudioRecovery.h"

#include <algorithm>
#include <list>
#include <string>
#include "LxAudioCaptureJournalFile.h"
#include "LxAudioClip.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxPCMData.h"
#include "LxAudioController.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFileLock.h"
#include "LxPublic/LxFileUtil.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioRecovery";

const char* const LxAudioRecovery::kLockFileName = "working.lock";

namespace {

LxFile LockFileOf(const LxFile& directory) { return directory.GetChild(LxAudioRecovery::kLockFileName); }

// The recordings of a directory, oldest first.
std::vector<LxAudioInterruptedRecording> ReadRecordings(const LxFile& directory) {
    std::vector<LxAudioInterruptedRecording> recordings;
    for (const LxFile& journal : LxFileUtil::ListFiles(directory, LxAudioCaptureJournalFile::kSuffix)) {
        LxAudioInterruptedRecording info;
        int64_t damage = -1;
        LxAudioCaptureJournalFile::Read(journal, info, nullptr, damage);
        recordings.push_back(info);
    }
    std::stable_sort(recordings.begin(), recordings.end(),
                     [](const LxAudioInterruptedRecording& a, const LxAudioInterruptedRecording& b) {
                         return a.startTimeMS < b.startTimeMS;
                     });
    return recordings;
}

}  // namespace

std::vector<LxAudioLeftover> LxAudioRecovery::FindLeftovers(const LxFile& parentDirectory) {
    std::vector<LxAudioLeftover> leftovers;
    for (const LxFile& directory : LxFileUtil::ListDirectories(parentDirectory)) {
        const LxFile lock = LockFileOf(directory);
        if (!lock.Exists() || LxFileLock::IsHeld(lock)) continue;
        leftovers.push_back(LxAudioLeftover{directory, ReadRecordings(directory)});
    }
    return leftovers;
}

bool LxAudioRecovery::ReadLeftover(const LxFile& directory, LxAudioLeftover& leftover) {
    const LxFile lock = LockFileOf(directory);
    if (!lock.Exists()) {
        LxAssertFailed(("not a working directory: " + directory.GetPath().str()).c_str(), kSourceFile, __LINE__);
        return false;
    }
    if (LxFileLock::IsHeld(lock)) {
        LxAssertFailed(("working directory in use by a live controller: " + directory.GetPath().str()).c_str(),
                       kSourceFile, __LINE__);
        return false;
    }
    leftover = LxAudioLeftover{directory, ReadRecordings(directory)};
    return true;
}

int LxAudioRecovery::RecoverRecordings(LxAudioController& controller, const LxAudioLeftover& leftover,
                                       std::vector<int>& clipIDs) {
    LxFileLock lock;
    if (!lock.TryLock(LockFileOf(leftover.directory))) {
        LxAssertFailed(("working directory in use: " + leftover.directory.GetPath().str()).c_str(), kSourceFile,
                       __LINE__);
        return -1;
    }
    int added = 0;
    for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
        // The buffers go through the same appending as a capture's consumer
        // does, so the clip holds exactly what the capture would have stored.
        std::unique_ptr<LxAudioClip> clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
        LxAudioCaptureJournalFile::Buffer last;
        bool any = false;
        LxAudioInterruptedRecording info;
        int64_t damage = -1;
        bool readable = LxAudioCaptureJournalFile::Read(
            recording.journal, info,
            [&](const LxAudioCaptureJournalFile::Buffer& buffer) {
                // After a page the store refused (it is full) the clip is not
                // stored; the rest is not offered to it.
                if (!clip->HasLostAudio())
                    clip->AppendPCMData(buffer.pcm.data(), static_cast<int>(buffer.pcm.size()), buffer.channels,
                                        buffer.framesPerSecond, buffer.bitsPerSample, buffer.volume);
                last.channels = buffer.channels;
                last.framesPerSecond = buffer.framesPerSecond;
                last.bitsPerSample = buffer.bitsPerSample;
                last.volume = buffer.volume;
                any = true;
            },
            damage);
        if (!readable) {
            LxAssertFailed(("capture journal unreadable (damaged header): " + recording.journal.GetPath().str()).c_str(),
                           kSourceFile, __LINE__);
            continue;
        }
        if (damage >= 0) {
            LxAssertFailed(("capture journal damaged at byte " + std::to_string(damage) +
                            "; its recording ends there: " + recording.journal.GetPath().str())
                               .c_str(),
                           kSourceFile, __LINE__);
        }
        if (!any) continue;
        int clipID = clip->FinishAppendingPCMData(last.channels, last.framesPerSecond, last.bitsPerSample, last.volume);
        if (clipID != -1) {
            clipIDs.push_back(clipID);
            ++added;
        }
    }
    return added;
}

int LxAudioRecovery::CopyStoredClips(LxAudioController& controller, const LxAudioLeftover& leftover,
                                     std::map<int, int>& idMap) {
    LxFileLock lock;
    if (!lock.TryLock(LockFileOf(leftover.directory))) {
        LxAssertFailed(("working directory in use: " + leftover.directory.GetPath().str()).c_str(), kSourceFile,
                       __LINE__);
        return -1;
    }
    static const char* const kMembers[] = {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"};
    for (const char* member : kMembers) {
        if (!leftover.directory.GetChild(member).Exists()) return 0;
    }
    // Opening a store on its files would delete them with it: it reads copies.
    LxFile scratch = LxFileUtil::CreateUniqueTempDir("LxRecover", "", true);
    if (scratch.GetPath().IsEmpty()) {
        LxAssertFailed("cannot make a scratch directory to read the leftover store", kSourceFile, __LINE__);
        return 0;
    }
    int copied = 0;
    bool filesCopied = true;
    for (const char* member : kMembers)
        filesCopied = filesCopied && LxFileUtil::CopyFile(leftover.directory.GetChild(member), scratch.GetChild(member));
    if (!filesCopied) {
        LxAssertFailed(("cannot copy the leftover store of " + leftover.directory.GetPath().str()).c_str(),
                       kSourceFile, __LINE__);
    } else {
        LxAudioFile store(scratch);
        int sizes[5] = {0, 0, 0, 0, 0};
        store.GetMemberSizes(sizes);
        std::list<int> ids;
        store.GetClipIDs(ids);
        for (int id : ids) {
            // Every page a clip lists must have a readable record of a known codec.
            LxAudioClipBase ranges(store, -1);
            bool intact = store.ReadClip(id, ranges);
            for (const LxPageRange& range : ranges.GetPageRanges()) {
                intact = intact && range.IsValid() && range.startPage >= 0 && range.endPage < sizes[2];
                for (int page = range.startPage; intact && page <= range.endPage; page += kLxPageRecordBytes) {
                    LxPCMData record;
                    intact = store.ReadPageHeader(page, record) && record.codec >= kLxPageCodecRaw &&
                             record.codec <= kLxPageCodecSilent;
                }
            }
            if (!intact) {
                LxAssertFailed(("leftover clip " + std::to_string(id) + " is damaged and was not copied: " +
                                leftover.directory.GetPath().str())
                                   .c_str(),
                               kSourceFile, __LINE__);
                continue;
            }
            LxAudioClip original(store, id);
            std::unique_ptr<LxAudioClip> copy = controller.GetNewClip(original.GetClipSource());
            copy->AppendPCMDataFromAClipInsideAnotherAudioFile(original);
            int newID = copy->WriteToAudioFile();
            if (newID == -1) continue;
            idMap[id] = newID;
            ++copied;
        }
    }
    LxFileUtil::DeleteDirectory(scratch, true);
    return copied;
}

bool LxAudioRecovery::DeleteLeftover(const LxAudioLeftover& leftover) {
    LxFileLock lock;
    if (!lock.TryLock(LockFileOf(leftover.directory))) return false;
    // The lock file goes last, with the directory; the lock is released first
    // where an open handle would keep the directory from going.
    for (const LxFile& journal : LxFileUtil::ListFiles(leftover.directory, LxAudioCaptureJournalFile::kSuffix))
        journal.Delete();
    lock.Unlock();
    return LxFileUtil::DeleteDirectory(leftover.directory, true);
}
