#pragma once
// The engine's front object: one per open project. It owns the project's audio
// store, which lives in a private temporary directory for the controller's
// life, and hands out clips bound to that store, merged clips, and the capture
// and playback sessions. Every object a factory returns belongs to the caller;
// the controller keeps no record of them. Clips must be destroyed before the
// controller that made them.
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioDamageReport.h"
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

class LxAudioCaptureJournal;
class LxFileLock;

// Every controller works in a working directory of its own, private to its user
// (0700 on POSIX), which holds the store's member files, a lock file that the
// controller holds for its whole life (so that a live controller's directory is
// never taken for a leftover), and the capture journals.
//
// Capture journal: while a capture runs, every captured buffer is written to a
// journal file of its own in the working directory (raw PCM with its format,
// volume and start time), within 0.5 s of being captured, by a thread of the
// journal's own, never by the device's reader thread; the journal is forced to
// stable storage at least once a second. A process killed during a capture
// therefore loses at most the last half second, a power cut at most the last
// two; LxAudioRecovery gives the audio back. When the capture ends, its journal
// stays until a save commits the recording: by default the next successful
// WriteTo (either form) does, or the host calls CommitRecordings itself.
//
// Disk space: before a capture starts and while it runs, the free space where
// the journal and the store are written is watched, and so is the room left in
// the store (a member holds at most 2 GiB). A capture is refused when less
// than about ten seconds of it would fit on the disk (beyond the reserve, see
// SetCaptureDiskReserve) or in the store, and a running capture ends itself
// when that is all that is left, or when its journal cannot be written: as StopCapture would,
// keeping everything captured, and telling the host through its capture
// callback (kind 39, kLxCallBackCaptureEnded, with the clip's ID).
class LXAUDIOCORE_API LxAudioController {
public:
    // Makes the working directory in the system's temporary directory and the
    // store, and starts the stop handler. The destructor deletes the directory
    // with everything in it, uncommitted journals included.
    LxAudioController();
    // The same, with the working directory made inside parentDirectory (created
    // when missing), where a host keeps its leftovers to recover (see
    // LxAudioRecovery). The destructor keeps the directory, with the journals
    // of recordings that no save committed (and nothing else), when there are
    // any; otherwise it deletes it. Throws LxLCException ("kLxErrorInternal")
    // when the directory cannot be made.
    explicit LxAudioController(const LxFile& parentDirectory);
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
    // The same saves with an integrity record, and loads that check one (or,
    // for a project saved without, what its structure allows); see
    // LxAudioFile::WriteVerifiedTo and ReadVerifiedFrom. A verified save
    // commits recordings as WriteTo does. After a load that found damage the
    // store refuses to be saved; SalvageInto copies its clips into another
    // controller's store (see LxAudioFile::SalvageInto). A null stream gives an
    // assertion report and false.
    bool WriteVerifiedTo(ILxStream* out);
    bool WriteVerifiedTo(const LxFile& directory, bool incremental, LxZipUpdateInfo* info);
    bool ReadVerifiedFrom(ILxStream* in, LxAudioDamageReport& report);
    bool ReadVerifiedFrom(const LxFile& directory, LxAudioDamageReport& report);
    // A verified load of a project saved in one stream to projectFile that reads
    // its audio in place instead of copying it (LxAudioFile::ReadVerifiedInPlace):
    // the file must not change while the controller uses it.
    bool ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report);
    int SalvageInto(LxAudioController& target, const LxAudioDamageReport& report, bool fillDamaged,
                    std::map<int, int>& idMap, std::set<int>& patched);
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
    // Checks that what the store holds makes sense, beyond what a load checks
    // (that the members fit their stream, or the integrity record): the page
    // table is a whole number of page records, at least the reserved ones;
    // the reserved pages are silent; every clip can be read, and each of its
    // page ranges is valid and lies on page records inside the page table.
    // True when all of that holds; otherwise false, and problem names the
    // first thing found: "page table has a bad size", "reserved silent page
    // 36 is missing", "clip 7 cannot be read", "clip 7 refers to pages that do
    // not exist". Raises no assertion report of its own; reading a damaged
    // clip raises the store's usual reports, which reach the host's handler,
    // and a clip whose reading reported on this thread cannot be read.
    bool Verify(std::string& problem);

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
    // After a capture ended itself (kind 39), the next StopCapture returns that
    // capture's clip ID, once.
    void CancelCapture();
    // Whether a capture is running.
    bool IsCapturing();
    // Bytes of the disk that a capture leaves free (default 0): a host that
    // needs room to save after recording reserves it here. Watched from the
    // next StartCapture on.
    void SetCaptureDiskReserve(int64_t bytes);
    // How many seconds of capture still fit on the disk beyond the reserve at
    // the rate the running capture writes; -1 when no capture runs or the free
    // space cannot be told.
    double GetCaptureSecondsOfDiskLeft();
    // How many seconds of capture the store still has room for (a store member
    // holds at most 2 GiB); -1 when no capture runs.
    double GetCaptureSecondsOfStoreLeft();
    // Whether the last capture that ended itself (kind 39) did so because the
    // store was about to be full, rather than the disk or the journal. Cleared
    // by the next StartCapture.
    bool CaptureEndedForFullStore();

    // --- recordings not yet committed by a save ------------------------------------
    // Deletes the journals of every capture that has ended: the host's saved
    // project now holds their recordings.
    void CommitRecordings();
    // Whether a successful WriteTo commits the recordings (default true). A
    // host whose save goes on after WriteTo (a rename, a sync) turns this off
    // and calls CommitRecordings once the save is safe.
    void SetCommitRecordingsOnSave(bool commit);
    // Ended captures whose journals no save has committed yet.
    int GetUncommittedRecordingCount();

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

    // Called on the stop handler's thread when a capture journal asks for its
    // capture to end (message 16); generation names the capture.
    void HandleCaptureEndRequest(int generation);

private:
    void Construct(const LxFile* parentDirectory);
    void CreateSharedAudioData();
    void DestroySharedAudioData();
    // StopCapture and CancelCapture.
    int EndCapture();
    size_t EndedJournalCount();
    // Deletes the journals of the first count ended captures.
    void CommitJournals(size_t count);
    void StartPlayBack(int key, std::unique_ptr<LxAudioClip> ownedClip, ILxAudioPlaybackClip& clip, int startFrame,
                       int endFrame, LxCallBackFunction callback, void* context);

    std::unique_ptr<LxAudioFile> audioFile;
    std::unique_ptr<LxSharedDeque<LxAudioCaptureData*>> sharedAudioData;
    std::unique_ptr<LxAudioCaptureDevice> captureDevice;
    std::map<int, std::unique_ptr<WLxAudioPlayBackDeviceMMIO>> playbacks;
    LxAudioPlaybackStopHandler stopHandler;
    LxFile temporaryDirectory;
    LxRecursiveMutex lock;

    // Beside the members above: the working directory's lock, the capture's
    // journal and the deque between the journal and the consumer (the device
    // feeds the shared audio data, which the journal thread drains).
    std::unique_ptr<LxFileLock> workingLock;
    bool keepUncommittedRecordings = false;
    LxRecursiveMutex captureLock;
    std::unique_ptr<LxAudioCaptureJournal> captureJournal;
    std::unique_ptr<LxSharedDeque<LxAudioCaptureData*>> consumerAudioData;
    LxCallBackFunction captureCallback = nullptr;
    void* captureContext = nullptr;
    int captureGeneration = 0;
    int endedItselfClipID = -1;
    bool endedForFullStore = false;  // why the last capture that ended itself ended
    int64_t captureDiskReserve = 0;
    int journalCount = 0;
    std::vector<LxFile> endedJournals;
    bool commitOnSave = true;
};

// The stop request for callers that hold only a context pointer; does nothing
// when controller is null.
LXAUDIOCORE_API void LxHandleStopPlayBackCalledFromDevice(int clipID, void* controller);
