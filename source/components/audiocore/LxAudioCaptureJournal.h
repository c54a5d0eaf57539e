#pragma once
// The capture journal's thread: it stands between the capture device and the
// capture consumer. It takes every captured buffer off the device's deque,
// appends it to the journal file (handed to the operating system at once, and
// forced to stable storage at least once a second), and passes it on, in the
// same order, to the consumer's deque; the terminal item ends it. The device's
// reader thread thus never waits for a disk.
//
// It also watches the free space where the journal and the store are written,
// and the room left in the store itself (a member holds at most 2 GiB). When
// less than kMinimumSeconds of capture are left on the disk beyond the reserve
// or in the store, or the journal can no longer be written, it asks once for
// the capture to end (through the function given, which must not block).
#include <atomic>
#include <cstdint>
#include <functional>
#include "LxAudioConstants.h"
#include "LxAudioCaptureData.h"
#include "LxAudioCaptureJournalFile.h"
#include "LxSharedDeque.h"
#include "LxPublic/LxWorkerThread.h"

class LxAudioCaptureJournal : public LxWorkerThread {
public:
    // Seconds of capture below which a capture ends itself.
    static constexpr double kMinimumSeconds = 10.0;
    // The longest a captured buffer waits before it reaches the journal file,
    // and the longest between two syncs, in milliseconds.
    static constexpr int kSyncIntervalMS = 1000;

    LxAudioCaptureJournal(LxSharedDeque<LxAudioCaptureData*>& fromDevice,
                          LxSharedDeque<LxAudioCaptureData*>& toConsumer, std::function<void()> requestEnd);
    ~LxAudioCaptureJournal() override;

    // Creates the journal file, after checking that at least kMinimumSeconds of
    // capture fit on the disk of watched beyond reserve. False, with an
    // assertion report, when either fails; nothing is left behind then.
    bool Open(const LxFile& file, const LxFile& watched, int64_t reserve);
    // Before Open: the bytes of PCM the store can still take (-1, the default:
    // not watched). Open refuses a capture for which the store has room for
    // less than kMinimumSeconds; from then on every byte that goes through the
    // journal counts against that room, so the watch needs no store lock and
    // runs ahead of the consumer that stores the pages.
    void WatchStoreRoom(int64_t bytes) { storeRoomAtOpen = bytes; }
    // After the thread ended (the terminal item went through): records the
    // clip the capture was stored as, forces the file to disk and closes it.
    void Finish(int clipID);
    // Deletes the journal file (a capture that never started, or nothing to keep).
    void Discard();

    const LxFile& GetFile() const { return file.GetFile(); }
    // Frames a recovery of this journal would give back.
    int64_t GetRecoverableBytes() const { return file.GetAudioBytes() / kLxWholeFrameBlockBytes * kLxWholeFrameBlockBytes; }
    // Seconds of capture left on the disk beyond the reserve; -1 when unknown.
    double GetSecondsOfDiskLeft() const { return secondsLeft.load(); }
    // Seconds of capture the store still has room for; -1 when not watched.
    double GetSecondsOfStoreLeft() const { return storeSecondsLeft.load(); }
    // Whether the end was asked for because the store (not the disk, nor the
    // journal) was about to be full.
    bool EndedForFullStore() const { return endedForStore.load(); }

protected:
    void Run() override;
    const char* GetThreadName() const override { return "capture journal"; }

private:
    // Bytes a capture writes per second: the journal and the store's pages
    // (the same PCM again, with records and thumbnails).
    static constexpr double kBytesPerSecond = 2 * 88200.0 + 4096.0;

    void CheckDiskSpace();
    void CheckStoreRoom();
    void Fail(const char* why, int line);

    LxSharedDeque<LxAudioCaptureData*>& fromDevice;
    LxSharedDeque<LxAudioCaptureData*>& toConsumer;
    std::function<void()> requestEnd;
    LxAudioCaptureJournalFile file;
    LxFile watched;
    int64_t reserve = 0;
    bool failed = false;
    bool endRequested = false;
    std::atomic<double> secondsLeft{-1.0};
    int64_t storeRoomAtOpen = -1;
    // Bytes of capture a second brings into the store, by the widest buffer seen.
    double storeBytesPerSecond = kLxFrameRate * 2.0;
    std::atomic<double> storeSecondsLeft{-1.0};
    std::atomic<bool> endedForStore{false};
};
