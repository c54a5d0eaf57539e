#include "LxAudioCaptureJournal.h"

#include <chrono>
#include <deque>
#include <string>
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxException.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFatalException.h"
#include "LxPublic/LxFileUtil.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioCaptureJournal";

namespace {

using Clock = std::chrono::steady_clock;

// The wait for the next buffer is bounded so that syncs and disk checks keep
// their cadence while the device delivers nothing.
constexpr int kWaitMS = 200;
constexpr auto kSpaceCheckInterval = std::chrono::milliseconds(500);

int64_t NowMS() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

LxAudioCaptureJournal::LxAudioCaptureJournal(LxSharedDeque<LxAudioCaptureData*>& device,
                                             LxSharedDeque<LxAudioCaptureData*>& consumer,
                                             std::function<void()> onEnd)
    : LxWorkerThread(kLxThreadPriorityNormal), fromDevice(device), toConsumer(consumer), requestEnd(std::move(onEnd)) {}

LxAudioCaptureJournal::~LxAudioCaptureJournal() { Join(); }

bool LxAudioCaptureJournal::Open(const LxFile& journal, const LxFile& watch, int64_t reserveBytes) {
    watched = watch;
    reserve = reserveBytes;
    CheckDiskSpace();
    const double left = secondsLeft.load();
    if (left >= 0.0 && left < kMinimumSeconds) {
        LxAssertFailed(("capture refused: the disk of " + watched.GetPath().str() + " has room for " +
                        std::to_string(static_cast<int>(left)) + " s of recording")
                           .c_str(),
                       kSourceFile, __LINE__);
        return false;
    }
    CheckStoreRoom();
    const double storeLeft = storeSecondsLeft.load();
    if (storeLeft >= 0.0 && storeLeft < kMinimumSeconds) {
        LxAssertFailed(("capture refused: the store has room for " + std::to_string(static_cast<int>(storeLeft)) +
                        " s of recording (a store member holds at most 2 GiB)")
                           .c_str(),
                       kSourceFile, __LINE__);
        return false;
    }
    if (!file.Create(journal, NowMS())) {
        LxAssertFailed(("capture refused: cannot write the capture journal " + journal.GetPath().str()).c_str(),
                       kSourceFile, __LINE__);
        Discard();
        return false;
    }
    return true;
}

void LxAudioCaptureJournal::Run() {
    LxExceptionUtils::InstallExceptionHandler();
    try {
        auto lastSync = Clock::now();
        auto lastCheck = Clock::now();
        bool unsynced = false;
        bool terminal = false;
        while (!terminal) {
            std::deque<LxAudioCaptureData*> batch;
            {
                LxLock lock(fromDevice.mutex);
                if (fromDevice.queue.empty()) fromDevice.condition.Wait(lock, kWaitMS);
                batch.swap(fromDevice.queue);
            }
            for (LxAudioCaptureData* item : batch) {
                if (item->IsTerminal()) {
                    terminal = true;
                } else if (!failed) {
                    if (item->channels == 2) storeBytesPerSecond = kLxFrameRate * 4.0;
                    if (file.AppendBuffer(*item)) {
                        unsynced = true;
                    } else {
                        Fail("cannot write the capture journal (disk full?)", __LINE__);
                    }
                }
                toConsumer.PushBack(item);
            }
            const auto now = Clock::now();
            if (unsynced && (terminal || now - lastSync >= std::chrono::milliseconds(kSyncIntervalMS))) {
                if (!failed && !file.Sync()) Fail("cannot force the capture journal to disk", __LINE__);
                unsynced = false;
                lastSync = now;
            }
            if (now - lastCheck >= kSpaceCheckInterval) {
                lastCheck = now;
                CheckDiskSpace();
                CheckStoreRoom();
                const double left = secondsLeft.load();
                const double storeLeft = storeSecondsLeft.load();
                const bool storeFull = storeLeft >= 0.0 && storeLeft < kMinimumSeconds;
                if (((left >= 0.0 && left < kMinimumSeconds) || storeFull) && !endRequested) {
                    endRequested = true;
                    endedForStore.store(storeFull && !(left >= 0.0 && left < kMinimumSeconds));
                    requestEnd();
                }
            }
        }
    } catch (const LxException& e) {
        LxExceptionUtils::HandleException(e, GetThreadName());
    } catch (...) {
        LxExceptionUtils::HandleException(LxFatalException(kLxExceptionMsgStr), GetThreadName());
    }
}

void LxAudioCaptureJournal::Fail(const char* why, int line) {
    failed = true;
    LxAssertFailed((std::string(why) + ": " + file.GetFile().GetPath().str()).c_str(), kSourceFile, line);
    if (!endRequested) {
        endRequested = true;
        requestEnd();
    }
}

void LxAudioCaptureJournal::CheckDiskSpace() {
    const int64_t available = LxFileUtil::GetAvailableDiskSpace(watched);
    if (available < 0) {
        secondsLeft.store(-1.0);
        return;
    }
    const double room = static_cast<double>(available) - static_cast<double>(reserve);
    secondsLeft.store(room > 0 ? room / kBytesPerSecond : 0.0);
}

void LxAudioCaptureJournal::CheckStoreRoom() {
    if (storeRoomAtOpen < 0) return;
    // Every byte journaled is a byte the consumer stores, or is about to.
    const double room = static_cast<double>(storeRoomAtOpen) - static_cast<double>(file.GetAudioBytes());
    storeSecondsLeft.store(room > 0 ? room / storeBytesPerSecond : 0.0);
}

void LxAudioCaptureJournal::Finish(int clipID) {
    if (!failed) {
        if (!file.AppendEnd(clipID) || !file.Sync())
            LxAssertFailed(("cannot finish the capture journal " + file.GetFile().GetPath().str()).c_str(),
                           kSourceFile, __LINE__);
    }
    file.Close();
}

void LxAudioCaptureJournal::Discard() {
    file.Close();
    if (!file.GetFile().GetPath().IsEmpty()) file.GetFile().Delete();
}
