#include "LxAudioController.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioCaptureConsumer.h"
#include "LxAudioCaptureJournal.h"
#include "LxAudioRecovery.h"
#include "LxAudioCaptureDevice.h"
#include "LxAudioFile.h"
#include "LxAudioPlaybackSource.h"
#include "WLxAudioCaptureDeviceMMIO.h"
#include "WLxAudioPlayBackDeviceMMIO.h"
#include "LxWAVImporter.h"
#include "LxNvVorbisImporter.h"
#include "LxRawAudioExporter.h"
#include "LxRawAudioImporter.h"
#include "LxWAVExporter.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxClock.h"
#include "LxPublic/LxFileLock.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxLCException.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioController";

LxAudioController::LxAudioController() { Construct(nullptr); }

LxAudioController::LxAudioController(const LxFile& parentDirectory) {
    keepUncommittedRecordings = true;
    Construct(&parentDirectory);
}

void LxAudioController::Construct(const LxFile* parentDirectory) {
    stopHandler.SetController(this);
    temporaryDirectory = parentDirectory == nullptr
                             ? LxFileUtil::CreateUniqueTempDir("AudCntlr", "", true)
                             : LxFileUtil::CreateUniquePrivateDir(*parentDirectory, "AudCntlr");
    if (temporaryDirectory.GetPath().IsEmpty()) throw LxLCException("kLxErrorInternal", kSourceFile, __LINE__);
    // Held for the controller's whole life: a working directory whose lock is
    // free is a leftover that recovery may take.
    workingLock = std::make_unique<LxFileLock>();
    if (!workingLock->TryLock(temporaryDirectory.GetChild(LxAudioRecovery::kLockFileName))) {
        LxFileUtil::DeleteDirectory(temporaryDirectory, true);
        throw LxLCException("kLxErrorInternal", kSourceFile, __LINE__);
    }
    stopHandler.Start();
    audioFile = std::make_unique<LxAudioFile>(temporaryDirectory);
}

LxAudioController::~LxAudioController() {
    // The stop handler goes first, so that nothing ends the capture behind the
    // destructor's back (a request still queued is handled before it quits).
    stopHandler.Post(LxThread::kMessageQuit, 0, 0);
    stopHandler.Join();
    // A capture the host left running would go on writing into the deque and
    // the store destroyed below: it is cancelled.
    if (captureDevice) CancelCapture();
    {
        // Devices still entered are deleted, in ascending key order, without
        // being stopped (no kind 36 now).
        LxRecursiveLock guard(lock);
        for (auto& entry : playbacks) entry.second.reset();
        playbacks.clear();
    }
    audioFile.reset();
    DestroySharedAudioData();
    if (keepUncommittedRecordings && !endedJournals.empty()) {
        // The store's files went with the store; what stays is the journals of
        // the recordings no save committed, and the lock file, now free: a
        // leftover for LxAudioRecovery.
        workingLock.reset();
        return;
    }
    workingLock.reset();
    LxFileUtil::DeleteDirectory(temporaryDirectory, true);
}

bool LxAudioController::ReadFrom(ILxStream* in) { return in != nullptr && audioFile->ReadFrom(*in); }

bool LxAudioController::WriteTo(ILxStream* out) {
    if (out == nullptr) return false;
    const size_t ended = EndedJournalCount();
    const bool saved = audioFile->WriteTo(*out);
    if (saved && commitOnSave) CommitJournals(ended);
    return saved;
}

bool LxAudioController::ReadFrom(const LxFile& directory) { return audioFile->ReadFrom(directory); }

bool LxAudioController::WriteTo(const LxFile& directory, bool incremental, LxZipUpdateInfo* info) {
    const size_t ended = EndedJournalCount();
    const bool saved = audioFile->WriteTo(directory, incremental, info);
    if (saved && commitOnSave) CommitJournals(ended);
    return saved;
}

bool LxAudioController::WriteVerifiedTo(ILxStream* out) {
    if (out == nullptr) {
        LxAssertFailed("no stream to save into", kSourceFile, __LINE__);
        return false;
    }
    const size_t ended = EndedJournalCount();
    const bool saved = audioFile->WriteVerifiedTo(*out);
    if (saved && commitOnSave) CommitJournals(ended);
    return saved;
}

bool LxAudioController::WriteVerifiedTo(const LxFile& directory, bool incremental, LxZipUpdateInfo* info) {
    const size_t ended = EndedJournalCount();
    const bool saved = audioFile->WriteVerifiedTo(directory, incremental, info);
    if (saved && commitOnSave) CommitJournals(ended);
    return saved;
}

bool LxAudioController::ReadVerifiedFrom(ILxStream* in, LxAudioDamageReport& report) {
    if (in == nullptr) {
        report = LxAudioDamageReport();
        LxAssertFailed("no stream to load from", kSourceFile, __LINE__);
        return false;
    }
    return audioFile->ReadVerifiedFrom(*in, report);
}

bool LxAudioController::ReadVerifiedFrom(const LxFile& directory, LxAudioDamageReport& report) {
    return audioFile->ReadVerifiedFrom(directory, report);
}

bool LxAudioController::ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report) {
    return audioFile->ReadVerifiedInPlace(projectFile, report);
}

int LxAudioController::SalvageInto(LxAudioController& target, const LxAudioDamageReport& report, bool fillDamaged,
                                   std::map<int, int>& idMap, std::set<int>& patched) {
    return audioFile->SalvageInto(*target.audioFile, report, fillDamaged, idMap, patched);
}

size_t LxAudioController::EndedJournalCount() {
    LxRecursiveLock guard(captureLock);
    return endedJournals.size();
}

void LxAudioController::CommitJournals(size_t count) {
    // Only the recordings that had ended when the save began are in it.
    LxRecursiveLock guard(captureLock);
    count = std::min(count, endedJournals.size());
    for (size_t i = 0; i < count; ++i) endedJournals[i].Delete();
    endedJournals.erase(endedJournals.begin(), endedJournals.begin() + static_cast<std::ptrdiff_t>(count));
}

void LxAudioController::CommitRecordings() { CommitJournals(EndedJournalCount()); }

void LxAudioController::SetCommitRecordingsOnSave(bool commit) {
    LxRecursiveLock guard(captureLock);
    commitOnSave = commit;
}

int LxAudioController::GetUncommittedRecordingCount() { return static_cast<int>(EndedJournalCount()); }

void LxAudioController::AppendAudioFileFrom(LxAudioController& other, std::map<int, int>& idMap) {
    audioFile->AppendAudioFileFrom(*other.audioFile, idMap);
}

bool LxAudioController::CompressOnePage() { return audioFile ? audioFile->CompressOnePage() : false; }

bool LxAudioController::HasPagesToCompress() { return audioFile ? audioFile->HasPagesToCompress() : false; }

int LxAudioController::CompressAllPages(ILxGeneralProgressCallBack* progress) {
    return audioFile ? audioFile->CompressAllPages(progress) : 0;
}

bool LxAudioController::Compact(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress) {
    return audioFile ? audioFile->Compact(clipIDs, progress) : false;
}

void LxAudioController::GetListOfClipIDs(std::list<int>& clipIDs) {
    if (audioFile && audioFile->IsOpen()) audioFile->GetClipIDs(clipIDs);
}

std::unique_ptr<LxAudioClip> LxAudioController::GetNewClip(LX_AUDIO_CLIP_SOURCE source) {
    return std::make_unique<LxAudioClip>(*audioFile, -1, source);
}

std::unique_ptr<LxAudioClip> LxAudioController::GetClip(int clipID) {
    return std::make_unique<LxAudioClip>(*audioFile, clipID, LX_AUDIO_CLIP_SOURCE_OTHER);
}

std::unique_ptr<LxAudioClipBase> LxAudioController::GetClipBase(int clipID) {
    auto clip = std::make_unique<LxAudioClipBase>(*audioFile, -1);
    if (static_cast<unsigned>(clipID) < 0xFFFFFFFFu) clip->ReadFromAudioFile(clipID);
    return clip;
}

std::unique_ptr<LxAudioClip> LxAudioController::MergeClips(const std::list<int>& clipIDs) {
    auto result = std::make_unique<LxAudioClip>(*audioFile, -1, LX_AUDIO_CLIP_SOURCE_OTHER);
    for (int clipID : clipIDs) {
        if (clipID == -1) continue;
        LxAudioClipBase part(*audioFile, -1);
        part.ReadFromAudioFile(clipID);
        result->AppendPageRanges(part.GetPageRanges());
    }
    return result;
}

std::unique_ptr<LxWAVImporter> LxAudioController::GetWAVImporter(LxCallBackFunction callback, void* context,
                                                                bool noiseReduce) {
    return std::make_unique<LxWAVImporter>(*this, callback, context, noiseReduce);
}

std::unique_ptr<LxNvVorbisImporter> LxAudioController::GetNvVorbisImporter(LxCallBackFunction callback,
                                                                           void* context) {
    return std::make_unique<LxNvVorbisImporter>(*this, callback, context, false);
}

std::unique_ptr<LxRawAudioImporter> LxAudioController::GetRawAudioImporter(LxCallBackFunction callback, void* context,
                                                                           bool noiseReduce) {
    return std::make_unique<LxRawAudioImporter>(*this, callback, context, noiseReduce);
}

std::unique_ptr<LxWAVExporter> LxAudioController::GetWAVExporter(int channels, int frameRate, int bitsPerSample,
                                                                LxCallBackFunction callback, void* context) {
    return std::make_unique<LxWAVExporter>(*this, channels, frameRate, bitsPerSample, callback, context);
}

std::unique_ptr<LxRawAudioExporter> LxAudioController::GetRawAudioExporter(int channels, int frameRate,
                                                                           int bitsPerSample,
                                                                           LxCallBackFunction callback,
                                                                           void* context) {
    return std::make_unique<LxRawAudioExporter>(*this, channels, frameRate, bitsPerSample, callback, context);
}

std::unique_ptr<LxAudioClipBase> LxAudioController::GetOneMergedClipByImporingtMultipleWavFiles(
    const std::vector<LxFile>& files, int gapDeciSeconds) {
    if (files.empty()) return nullptr;
    auto result = std::make_unique<LxAudioClipBase>(*audioFile, -1);
    int remaining = static_cast<int>(files.size()) - 1;
    bool anyImported = false;
    for (const LxFile& file : files) {
        std::unique_ptr<LxWAVImporter> importer = GetWAVImporter(nullptr, nullptr, false);
        int clipID = importer->Import(file);
        if (clipID != -1 && clipID != -2) {
            anyImported = true;
            LxAudioClipBase imported(*audioFile, clipID);
            result->AppendPageRanges(imported.GetPageRanges());
            if (gapDeciSeconds >= 1 && remaining != 0) {
                int added = 0;
                result->AppendSilenceFrames((gapDeciSeconds * kLxFrameRate) / 10, added, true);
            }
        }
        --remaining;
    }
    if (!anyImported) return nullptr;
    return result;
}

LxMP3Importer* LxAudioController::GetMP3Importer(LxCallBackFunction, void*) {
    LxReportAt("GetMP3Importer Not implemented", LxReportSites::kNoMP3Importer);
    throw LxLCException("kLxErrorInternal", LxReportSites::kNoMP3ImporterThrown.sourceFile,
                        LxReportSites::kNoMP3ImporterThrown.line);
}

LxMP3Exporter* LxAudioController::GetMP3Exporter(int, int, int, LxCallBackFunction, void*) {
    LxReportAt("GetMP3Exporter Not implemented", LxReportSites::kNoMP3Exporter);
    throw LxLCException("kLxErrorInternal", LxReportSites::kNoMP3ExporterThrown.sourceFile,
                        LxReportSites::kNoMP3ExporterThrown.line);
}

// --- capture ---------------------------------------------------------------------

void LxAudioController::CreateSharedAudioData() {
    if (!sharedAudioData) sharedAudioData = std::make_unique<LxSharedDeque<LxAudioCaptureData*>>();
    if (!consumerAudioData) consumerAudioData = std::make_unique<LxSharedDeque<LxAudioCaptureData*>>();
}

void LxAudioController::DestroySharedAudioData() {
    // Items nobody took (a consumer that ended early leaves some) go with the deques.
    if (consumerAudioData) {
        for (LxAudioCaptureData* item : consumerAudioData->queue) delete item;
        consumerAudioData.reset();
    }
    if (!sharedAudioData) return;
    for (LxAudioCaptureData* item : sharedAudioData->queue) delete item;
    sharedAudioData.reset();
}

bool LxAudioController::StartCapture(const int& deviceID, float volume, bool preserve, LxCallBackFunction callback,
                                     void* context, LxAudioCaptureConsumerBase* consumer) {
    LxRecursiveLock guard(captureLock);
    endedItselfClipID = -1;
    endedForFullStore = false;
    CreateSharedAudioData();
    // The device feeds the shared deque; the journal thread writes every item
    // to the journal and passes it on to the consumer's deque.
    const int generation = ++captureGeneration;
    auto journal = std::make_unique<LxAudioCaptureJournal>(*sharedAudioData, *consumerAudioData, [this, generation] {
        stopHandler.Post(LxAudioPlaybackStopHandler::kMessageEndCapture, generation, 0);
    });
    char name[32];
    std::snprintf(name, sizeof name, "capture-%06d", ++journalCount);
    LxString journalName(name);
    journalName += LxAudioCaptureJournalFile::kSuffix;
    // The capture device records mono: the store's room is counted in mono
    // pages, whose thumbnails are the larger.
    journal->WatchStoreRoom(audioFile ? audioFile->GetRoomForPCM(1) : -1);
    if (!journal->Open(temporaryDirectory.GetChild(journalName), temporaryDirectory, captureDiskReserve)) {
        DestroySharedAudioData();
        return false;
    }
    journal->Start();
    // A device still held is replaced, not stopped: the host stops a capture
    // before it starts another.
    (void)captureDevice.release();
    captureDevice = std::make_unique<WLxAudioCaptureDeviceMMIO>(*sharedAudioData);
    if (!captureDevice->Start(deviceID, volume, preserve, callback, context)) {
        // Nothing was captured: the journal ends and goes.
        sharedAudioData->PushBack(new LxAudioCaptureData(nullptr, 0, 1.0f, LxGetTickCountSinceAppStartTimeNS100()));
        journal->Join();
        journal->Discard();
        DestroySharedAudioData();
        return false;
    }
    captureJournal = std::move(journal);
    captureCallback = callback;
    captureContext = context;
    if (consumer != nullptr) {
        captureDevice->SetConsumer(consumer, false);
    } else {
        captureDevice->SetConsumer(new LxAudioCaptureConsumer(), true);
    }
    LxAudioCaptureConsumerBase* taker = captureDevice->GetConsumer();
    taker->Initialize(*this, *consumerAudioData, callback, context);
    taker->Start();
    return true;
}

void LxAudioController::SetCaptureVolume(float volume) {
    if (captureDevice) captureDevice->SetVolume(volume);
}

void LxAudioController::PreserveCapturedData(bool preserve) {
    if (captureDevice) captureDevice->SetCapturing(preserve);
}

void LxAudioController::PauseCapture() {
    if (captureDevice) captureDevice->SetCapturing(false);
}

void LxAudioController::ResumeCapture() {
    if (captureDevice) captureDevice->SetCapturing(true);
}

int LxAudioController::StopCapture() { return EndCapture(); }

void LxAudioController::CancelCapture() { EndCapture(); }

bool LxAudioController::IsCapturing() {
    LxRecursiveLock guard(captureLock);
    return captureDevice != nullptr && captureJournal != nullptr;
}

void LxAudioController::SetCaptureDiskReserve(int64_t bytes) {
    LxRecursiveLock guard(captureLock);
    captureDiskReserve = bytes > 0 ? bytes : 0;
}

double LxAudioController::GetCaptureSecondsOfDiskLeft() {
    LxRecursiveLock guard(captureLock);
    return captureJournal ? captureJournal->GetSecondsOfDiskLeft() : -1.0;
}

double LxAudioController::GetCaptureSecondsOfStoreLeft() {
    LxRecursiveLock guard(captureLock);
    return captureJournal ? captureJournal->GetSecondsOfStoreLeft() : -1.0;
}

bool LxAudioController::CaptureEndedForFullStore() {
    LxRecursiveLock guard(captureLock);
    return endedForFullStore;
}

int LxAudioController::EndCapture() {
    LxRecursiveLock guard(captureLock);
    if (!captureDevice) {
        // A capture that ended itself tells its clip once.
        int clipID = endedItselfClipID;
        endedItselfClipID = -1;
        return clipID;
    }
    // After Stop the reader thread has ended, so the terminal item is the last one.
    captureDevice->Stop();
    int clipID = -1;
    LxAudioCaptureConsumerBase* consumer = captureDevice->GetConsumer();
    if (sharedAudioData) {
        sharedAudioData->PushBack(
            new LxAudioCaptureData(nullptr, 0, captureDevice->GetVolume(), LxGetTickCountSinceAppStartTimeNS100()));
        // The journal thread hands everything, the terminal item last, to the consumer.
        if (captureJournal) captureJournal->Join();
        if (consumer != nullptr && consumer->IsStarted()) consumer->Join();
    }
    if (consumer != nullptr) clipID = consumer->GetCapturedClipID();
    if (captureJournal) {
        if (captureJournal->GetRecoverableBytes() > 0) {
            // Kept until a save commits the recording.
            captureJournal->Finish(clipID);
            endedJournals.push_back(captureJournal->GetFile());
        } else {
            captureJournal->Discard();
        }
        captureJournal.reset();
    }
    captureDevice.reset();
    DestroySharedAudioData();
    captureCallback = nullptr;
    captureContext = nullptr;
    return clipID;
}

void LxAudioController::HandleCaptureEndRequest(int generation) {
    LxCallBackFunction callback = nullptr;
    void* context = nullptr;
    int clipID = -1;
    {
        LxRecursiveLock guard(captureLock);
        // The capture that asked may have been stopped (and another started) since.
        if (!captureDevice || !captureJournal || generation != captureGeneration) return;
        callback = captureCallback;
        context = captureContext;
        endedForFullStore = captureJournal->EndedForFullStore();
        clipID = EndCapture();
        endedItselfClipID = clipID;
    }
    if (callback != nullptr) {
        LxCallBack ended(kLxCallBackCaptureEnded, static_cast<float>(clipID));
        callback(ended, context);
    }
}

// --- playback --------------------------------------------------------------------

void LxAudioController::StartPlayBackOnDefaultDevice(int clipID, int startFrame, int endFrame,
                                                     LxCallBackFunction callback, void* context) {
    LxRecursiveLock guard(lock);
    if (playbacks.count(clipID) != 0) return;
    auto clip = std::make_unique<LxAudioClip>(*audioFile, clipID, LX_AUDIO_CLIP_SOURCE_OTHER);
    LxAudioClip& playable = *clip;
    StartPlayBack(clipID, std::move(clip), playable, startFrame, endFrame, callback, context);
}

void LxAudioController::StartPlayBackOnDefaultDevice(ILxAudioPlaybackClip& clip, int startFrame, int endFrame,
                                                     LxCallBackFunction callback, void* context) {
    LxRecursiveLock guard(lock);
    if (playbacks.count(0) != 0) return;
    StartPlayBack(0, nullptr, clip, startFrame, endFrame, callback, context);
}

void LxAudioController::StartPlayBack(int key, std::unique_ptr<LxAudioClip> ownedClip, ILxAudioPlaybackClip& clip,
                                      int startFrame, int endFrame, LxCallBackFunction callback, void* context) {
    auto device = std::make_unique<WLxAudioPlayBackDeviceMMIO>(&LxHandleStopPlayBackCalledFromDevice, this);
    WLxAudioPlayBackDeviceMMIO& started = *device;
    playbacks[key] = std::move(device);
    clip.SeekToBeginning();
    clip.SetPortionToBePlayedBack(startFrame, endFrame);
    started.SetSource(std::make_unique<LxAudioPlaybackSource>(key, audioFile.get(), std::move(ownedClip), &clip));
    // A device that fails stays entered (and blocks its key) until stopped.
    started.Start(callback, context);
}

bool LxAudioController::IsPlayingBack(int clipID) {
    LxRecursiveLock guard(lock);
    return playbacks.count(clipID) != 0;
}

void LxAudioController::StopPlayBack(int clipID) {
    LxRecursiveLock guard(lock);
    // Each entry leaves the map before its device stops, so that a host
    // callback re-entering here (kind 36 is raised on this thread) finds a
    // consistent map.
    if (clipID == -1) {
        while (!playbacks.empty()) {
            auto node = playbacks.extract(playbacks.begin());
            node.mapped()->Stop();
        }
        return;
    }
    auto node = playbacks.extract(clipID);
    if (node.empty()) return;
    node.mapped()->Stop();
}

void LxAudioController::HandleStopPlayBackCalledFromDevice(int clipID) {
    stopHandler.Post(LxAudioPlaybackStopHandler::kMessageStopPlayBack, clipID, 0);
}

void LxHandleStopPlayBackCalledFromDevice(int clipID, void* controller) {
    if (controller != nullptr) static_cast<LxAudioController*>(controller)->HandleStopPlayBackCalledFromDevice(clipID);
}

bool LxAudioController::Verify(std::string& problem) {
    problem.clear();
    int sizes[5] = {0, 0, 0, 0, 0};
    audioFile->GetMemberSizes(sizes);
    const int pageTableBytes = sizes[2];
    if (pageTableBytes < kLxFirstOrdinaryPage || pageTableBytes % kLxPageRecordBytes != 0) {
        problem = "page table has a bad size";
        return false;
    }
    // A report on the way (a page record or a clip that reads wrongly) means
    // the clips cannot be trusted, even when the call still gave a result.
    const int64_t reportsBefore = LxAssertReportCount();
    LxPCMData record;
    for (int page = 0; page < kLxFirstOrdinaryPage; page += kLxPageRecordBytes) {
        if (!audioFile->ReadPageHeader(page, record) || record.codec != kLxPageCodecSilent) {
            problem = "reserved silent page " + std::to_string(page) + " is missing";
            return false;
        }
    }
    std::list<int> ids;
    GetListOfClipIDs(ids);
    for (int id : ids) {
        std::unique_ptr<LxAudioClipBase> clip = GetClipBase(id);
        if (!clip || LxAssertReportCount() != reportsBefore) {
            problem = "clip " + std::to_string(id) + " cannot be read";
            return false;
        }
        for (const LxPageRange& range : clip->GetPageRanges()) {
            const bool inside = range.startPage >= 0 && range.endPage >= range.startPage &&
                                range.endPage < pageTableBytes && range.startPage % kLxPageRecordBytes == 0 &&
                                range.endPage % kLxPageRecordBytes == 0;
            if (!inside || !range.IsValid()) {
                problem = "clip " + std::to_string(id) + " refers to pages that do not exist";
                return false;
            }
        }
    }
    return true;
}
