#pragma once
// The engine's front object: one per open project. It owns the project's audio
// store, which lives in a private temporary directory for the controller's
// life, and hands out clips bound to that store, merged clips, and the capture
// and playback sessions. Every object a factory returns belongs to the caller;
// the controller keeps no record of them. Clips must be destroyed before the
// controller that made them.
#include <list>
#include <map>
#include <memory>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioClipBase.h"
#include "LxAudioCaptureData.h"
#include "LxAudioClipSource.h"
#include "LxAudioCoreExport.h"
#include "LxAudioPlaybackStopHandler.h"
#include "LxSharedDeque.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/LxFile.h"
#include "LxPublic/LxRecursiveMutex.h"

class ILxStream;
class ILxGeneralProgressCallBack;
class LxAudioFile;
class LxZipUpdateInfo;
class LxMP3Importer;
class LxWAVImporter;
class LxNvVorbisImporter;
class LxRawAudioImporter;
class LxWAVExporter;
class LxRawAudioExporter;
class LxMP3Exporter;
class ILxAudioPlaybackClip;
class LxAudioCaptureConsumerBase;
class LxAudioCaptureDevice;
class WLxAudioPlayBackDeviceMMIO;

class LXAUDIOCORE_API LxAudioController {
public:
    // Makes the temporary directory and the store, and starts the stop handler.
    LxAudioController();
    // Stops the stop handler and every playback, deletes the store and the
    // temporary directory with all its files. A capture must have been stopped
    // or cancelled before.
    virtual ~LxAudioController();
    LxAudioController(const LxAudioController&) = delete;
    LxAudioController& operator=(const LxAudioController&) = delete;

    // --- persistence (forwarded to the store) -------------------------------------
    // False when the stream is missing or damaged; the store is then unchanged.
    bool ReadFrom(ILxStream* in);
    bool WriteTo(ILxStream* out);
    bool ReadFrom(const LxFile& directory);
    bool WriteTo(const LxFile& directory, bool incremental, LxZipUpdateInfo* info);
    // Copies every clip of other's store into this one; idMap receives old ID -> new ID.
    void AppendAudioFileFrom(LxAudioController& other, std::map<int, int>& idMap);
    // Compresses the next raw page to Vorbis; call repeatedly from one background
    // thread. False both when nothing is left and when a page was skipped.
    bool CompressOnePage();
    // Whether any raw page is left to compress.
    bool HasPagesToCompress();
    // Compresses every remaining page (task "kLxCompressingAudio"); returns how many.
    int CompressAllPages(ILxGeneralProgressCallBack* progress);
    // Rewrites the store keeping only what the listed clips reach; the list
    // comes back with their new IDs. True when the store changed.
    bool Compact(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress);
    void GetListOfClipIDs(std::list<int>& clipIDs);

    // --- clips -----------------------------------------------------------------------
    // An empty clip with no ID yet; it gets one when stored.
    std::unique_ptr<LxAudioClip> GetNewClip(LX_AUDIO_CLIP_SOURCE source);
    std::unique_ptr<LxAudioClip> GetClip(int clipID);
    std::unique_ptr<LxAudioClipBase> GetClipBase(int clipID);
    // A new, unsaved clip that plays the listed clips one after the other (IDs of -1 are skipped).
    std::unique_ptr<LxAudioClip> MergeClips(const std::list<int>& clipIDs);

    // --- import -------------------------------------------------------------------
    // noiseReduce runs the noise suppressor over the imported audio.
    std::unique_ptr<LxWAVImporter> GetWAVImporter(LxCallBackFunction callback, void* context, bool noiseReduce);
    // Imports the files one after the other into one clip base, with gapDeciSeconds
    // of silence after every imported file but the last; null when none imported.
    // Each import is also stored as a clip of its own.
    std::unique_ptr<LxAudioClipBase> GetOneMergedClipByImporingtMultipleWavFiles(const std::vector<LxFile>& files,
                                                                                 int gapDeciSeconds);
    // Ogg Vorbis files; no noise suppression.
    std::unique_ptr<LxNvVorbisImporter> GetNvVorbisImporter(LxCallBackFunction callback, void* context);
    // Streams of raw PCM chunks, as GetRawAudioExporter writes them.
    std::unique_ptr<LxRawAudioImporter> GetRawAudioImporter(LxCallBackFunction callback, void* context,
                                                            bool noiseReduce = false);

    // --- export -------------------------------------------------------------------
    // The output's channels (1 or 2), frame rate and bits per sample (16, 24, or
    // 32 for float samples); an unsupported format is reported by Export.
    std::unique_ptr<LxWAVExporter> GetWAVExporter(int channels, int frameRate, int bitsPerSample,
                                                  LxCallBackFunction callback, void* context);
    // Raw PCM chunks; bits per sample must be 16.
    std::unique_ptr<LxRawAudioExporter> GetRawAudioExporter(int channels, int frameRate, int bitsPerSample,
                                                            LxCallBackFunction callback, void* context);

    // Never built: both report and throw LxLCException("kLxErrorInternal").
    LxMP3Importer* GetMP3Importer(LxCallBackFunction callback, void* context);
    LxMP3Exporter* GetMP3Exporter(int rate, int channels, int bits, LxCallBackFunction callback, void* context);

    // --- capture -----------------------------------------------------------------
    // Records from input device deviceID (device index in the high 16 bits,
    // source line in the low 16 bits) into a new clip. volume -1.0 leaves the
    // input's volume alone; preserve false starts paused. The callback receives
    // the input level (kind 38) on the capture's reader thread. consumer, when
    // given, takes the captured buffers instead of the standard consumer and
    // stays the caller's. False (and nothing running) when the device did not
    // start; the host then still calls StopCapture or CancelCapture. One capture
    // at a time; stop or cancel it before starting another and before
    // destroying the controller.
    bool StartCapture(const int& deviceID, float volume, bool preserve, LxCallBackFunction callback, void* context,
                      LxAudioCaptureConsumerBase* consumer = nullptr);
    void SetCaptureVolume(float volume);
    void PreserveCapturedData(bool preserve);
    // While paused the input keeps running (and reporting its level) but nothing
    // is recorded: paused audio is simply absent from the clip.
    void PauseCapture();
    void ResumeCapture();
    // Ends the capture; the ID of the stored recording, or -1 when nothing was
    // recorded (or there was no capture).
    int StopCapture();
    // Ends the capture without telling the result (a recording is still stored).
    void CancelCapture();

    // --- playback ----------------------------------------------------------------
    // Plays the stored clip clipID, frames startFrame (1-based) to endFrame
    // (exclusive, -1: to the end), on the default output. Nothing happens while
    // clipID is already playing. The callback receives kinds 32 (started), 33
    // (position in frames) and 36 (stopped); failures show only as a missing 32.
    void StartPlayBackOnDefaultDevice(int clipID, int startFrame, int endFrame, LxCallBackFunction callback,
                                      void* context);
    // Plays the caller's object (which must outlive the playback) under key 0:
    // one at a time, and not while the stored clip 0 plays.
    void StartPlayBackOnDefaultDevice(ILxAudioPlaybackClip& clip, int startFrame, int endFrame,
                                      LxCallBackFunction callback, void* context);
    // Whether a playback is entered under that key (it stays entered until
    // stopped, even when its device failed to start). Like every playback entry
    // point it takes the controller's lock, which StopPlayBack holds while it
    // waits for a playback's thread: never call these from a playback callback.
    bool IsPlayingBack(int clipID);
    // Stops and removes the playback under clipID (-1: all).
    void StopPlayBack(int clipID);
    // Asks the stop handler thread to stop a playback; returns at once. Device
    // threads use this and never StopPlayBack.
    void HandleStopPlayBackCalledFromDevice(int clipID);

    LxAudioFile* GetAudioFile() const { return audioFile.get(); }
    const LxFile& GetTemporaryDirectory() const { return temporaryDirectory; }

private:
    void CreateSharedAudioData();
    void DestroySharedAudioData();
    // StopCapture and CancelCapture.
    int EndCapture();
    void StartPlayBack(int key, std::unique_ptr<LxAudioClip> ownedClip, ILxAudioPlaybackClip& clip, int startFrame,
                       int endFrame, LxCallBackFunction callback, void* context);

    std::unique_ptr<LxAudioFile> audioFile;
    std::unique_ptr<LxSharedDeque<LxAudioCaptureData*>> sharedAudioData;
    std::unique_ptr<LxAudioCaptureDevice> captureDevice;
    std::map<int, std::unique_ptr<WLxAudioPlayBackDeviceMMIO>> playbacks;
    LxAudioPlaybackStopHandler stopHandler;
    LxFile temporaryDirectory;
    LxRecursiveMutex lock;
};

// The stop request for callers that hold only a context pointer; does nothing
// when controller is null.
LXAUDIOCORE_API void LxHandleStopPlayBackCalledFromDevice(int clipID, void* controller);
