#include "LxAudioController.h"

#include "LxAudioCaptureConsumer.h"
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
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxLCException.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioController";

LxAudioController::LxAudioController() {
    stopHandler.SetController(this);
    temporaryDirectory = LxFileUtil::CreateUniqueTempDir("AudCntlr", "", true);
    if (temporaryDirectory.GetPath().IsEmpty()) throw LxLCException("kLxErrorInternal", kSourceFile, __LINE__);
    stopHandler.Start();
    audioFile = std::make_unique<LxAudioFile>(temporaryDirectory);
}

LxAudioController::~LxAudioController() {
    // A capture the host left running would go on writing into the deque and
    // the store destroyed below: it is cancelled first.
    if (captureDevice) CancelCapture();
    stopHandler.Post(LxThread::kMessageQuit, 0, 0);
    stopHandler.Join();
    {
        // Devices still entered are deleted, in ascending key order, without
        // being stopped (no kind 36 now).
        LxRecursiveLock guard(lock);
        for (auto& entry : playbacks) entry.second.reset();
        playbacks.clear();
    }
    audioFile.reset();
    DestroySharedAudioData();
    LxFileUtil::DeleteDirectory(temporaryDirectory, true);
}

bool LxAudioController::ReadFrom(ILxStream* in) { return in != nullptr && audioFile->ReadFrom(*in); }

bool LxAudioController::WriteTo(ILxStream* out) { return out != nullptr && audioFile->WriteTo(*out); }

bool LxAudioController::ReadFrom(const LxFile& directory) { return audioFile->ReadFrom(directory); }

bool LxAudioController::WriteTo(const LxFile& directory, bool incremental, LxZipUpdateInfo* info) {
    return audioFile->WriteTo(directory, incremental, info);
}

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
                result->AppendSilenceFrames((gapDeciSeconds * 44100) / 10, added, true);
            }
        }
        --remaining;
    }
    if (!anyImported) return nullptr;
    return result;
}

LxMP3Importer* LxAudioController::GetMP3Importer(LxCallBackFunction, void*) {
    LxAssertFailed("GetMP3Importer Not implemented", kSourceFile, 144);
    throw LxLCException("kLxErrorInternal", kSourceFile, 145);
}

LxMP3Exporter* LxAudioController::GetMP3Exporter(int, int, int, LxCallBackFunction, void*) {
    LxAssertFailed("GetMP3Exporter Not implemented", kSourceFile, 156);
    throw LxLCException("kLxErrorInternal", kSourceFile, 157);
}

// --- capture ---------------------------------------------------------------------

void LxAudioController::CreateSharedAudioData() {
    if (!sharedAudioData) sharedAudioData = std::make_unique<LxSharedDeque<LxAudioCaptureData*>>();
}

void LxAudioController::DestroySharedAudioData() {
    if (!sharedAudioData) return;
    // Items nobody took (a consumer that ended early leaves some) go with it.
    for (LxAudioCaptureData* item : sharedAudioData->queue) delete item;
    sharedAudioData.reset();
}

bool LxAudioController::StartCapture(const int& deviceID, float volume, bool preserve, LxCallBackFunction callback,
                                     void* context, LxAudioCaptureConsumerBase* consumer) {
    CreateSharedAudioData();
    // A device still held is replaced, not stopped: the host stops a capture
    // before it starts another.
    (void)captureDevice.release();
    captureDevice = std::make_unique<WLxAudioCaptureDeviceMMIO>(*sharedAudioData);
    if (!captureDevice->Start(deviceID, volume, preserve, callback, context)) {
        DestroySharedAudioData();
        return false;
    }
    if (consumer != nullptr) {
        captureDevice->SetConsumer(consumer, false);
    } else {
        captureDevice->SetConsumer(new LxAudioCaptureConsumer(), true);
    }
    LxAudioCaptureConsumerBase* taker = captureDevice->GetConsumer();
    taker->Initialize(*this, *sharedAudioData, callback, context);
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

int LxAudioController::EndCapture() {
    if (!captureDevice) return -1;
    // After Stop the reader thread has ended, so the terminal item is the last one.
    captureDevice->Stop();
    int clipID = -1;
    if (LxAudioCaptureConsumerBase* consumer = captureDevice->GetConsumer()) {
        if (sharedAudioData && consumer->IsStarted()) {
            sharedAudioData->PushBack(
                new LxAudioCaptureData(nullptr, 0, captureDevice->GetVolume(), LxGetTickCountSinceAppStartTimeNS100()));
            consumer->Join();
        }
        clipID = consumer->GetCapturedClipID();
    }
    captureDevice.reset();
    DestroySharedAudioData();
    return clipID;
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
