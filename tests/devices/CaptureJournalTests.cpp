// The capture journal and recovery: what a running capture has on disk rebuilds
// its recording exactly; ended recordings stay until a save commits them; a
// controller's working directory is private and locked; a capture ends itself
// before the disk fills; damaged and cut-short journals give back what is intact.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <fstream>
#include "AssertRecorder.h"
#include "DeviceTestSupport.h"
#include "LxAudioCaptureData.h"
#include "LxAudioCaptureJournalFile.h"
#include "LxAudioController.h"
#include "LxAudioRecovery.h"
#include "LxPublic/LxFaultInjection.h"
#include "LxPublic/LxFileLock.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace fs = std::filesystem;

namespace {

fs::path Native(const LxFile& file) { return fs::path(file.GetPath().str()); }

// The journals in a controller's working directory.
std::vector<LxFile> Journals(LxAudioController& controller) {
    return LxFileUtil::ListFiles(controller.GetTemporaryDirectory(), LxAudioCaptureJournalFile::kSuffix);
}

// A leftover made of a copy of journal, as a killed process leaves one.
LxAudioLeftover CopyAsLeftover(const LxFile& journal, const TempDir& scratch, const char* name) {
    fs::path dir = Native(scratch.Dir()) / name;
    fs::create_directories(dir);
    std::ofstream(dir / LxAudioRecovery::kLockFileName).put('\n');
    // (mingw's copy_file refuses to overwrite whatever the options say.)
    fs::remove(dir / "capture-000001.lxcj");
    fs::copy_file(Native(journal), dir / "capture-000001.lxcj");
    LxAudioLeftover leftover;
    EXPECT_TRUE(LxAudioRecovery::ReadLeftover(LxFile(LxString(dir.string())), leftover));
    return leftover;
}

std::vector<unsigned char> Recovered(const LxAudioLeftover& leftover, std::vector<int>* ids = nullptr) {
    LxAudioController into;
    std::vector<int> clipIDs;
    const int added = LxAudioRecovery::RecoverRecordings(into, leftover, clipIDs);
    EXPECT_EQ(added, static_cast<int>(clipIDs.size()));
    if (ids != nullptr) *ids = clipIDs;
    return clipIDs.size() == 1 ? ClipBytes(into, clipIDs[0]) : std::vector<unsigned char>{};
}

}  // namespace

using CaptureJournal = SimulatedDeviceTest;

TEST_F(CaptureJournal, WhatARunningCaptureHasOnDiskRebuildsItsRecording) {
    TempDir scratch;
    LxAudioController controller(scratch.Child("work"));
    // Private to its user, and never taken for a leftover while it lives.
    const fs::path work = Native(controller.GetTemporaryDirectory());
#ifndef _WIN32
    EXPECT_EQ(fs::status(work).permissions(), fs::perms::owner_all);
#endif
    EXPECT_TRUE(LxFileLock::IsHeld(controller.GetTemporaryDirectory().GetChild(LxAudioRecovery::kLockFileName)));
    EXPECT_TRUE(LxAudioRecovery::FindLeftovers(scratch.Child("work")).empty());

    // 3.5 s and 33 frames, captured and not stopped: a kill now loses nothing.
    std::vector<unsigned char> input = MonoBytes(154350 + 33, 5);
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
    ASSERT_NO_FATAL_FAILURE(Feed(input));
    std::vector<LxFile> journals = Journals(controller);
    ASSERT_EQ(journals.size(), 1u);
    // The journal thread writes each buffer as it passes it on; once the
    // consumer has it, so has the file. Wait for the last buffer to pass.
    LxAudioLeftover leftover;
    for (int i = 0; i < kGuardMilliseconds / 10; ++i) {
        leftover = CopyAsLeftover(journals[0], scratch, "killed");
        if (leftover.recordings.size() == 1 && leftover.recordings[0].frames == static_cast<int64_t>(input.size() / 180 * 90))
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(leftover.recordings.size(), 1u);
    EXPECT_FALSE(leftover.recordings[0].ended);
    EXPECT_EQ(leftover.recordings[0].frames, static_cast<int64_t>(input.size() / 180 * 90));
    std::vector<unsigned char> rebuilt = Recovered(leftover);

    const int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);
    const std::vector<unsigned char> stored = ClipBytes(controller, clipID);
    ASSERT_EQ(stored.size(), input.size() / 180 * 180);
    EXPECT_EQ(rebuilt, stored);

    // A stored clip is on disk as soon as it is stored: a process killed now
    // leaves a store from which it is copied whole; a clip whose page record
    // is damaged is left out, by name.
    for (const bool damaged : {false, true}) {
        SCOPED_TRACE(damaged ? "damaged page record" : "intact");
        const fs::path killed = Native(scratch.Dir()) / (damaged ? "damaged-store" : "store");
        fs::create_directories(killed);
        for (const char* member : {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa", "working.lock"})
            fs::copy_file(work / member, killed / member);
        if (damaged) {
            std::fstream pcm(killed / "pcm.lxa", std::ios::in | std::ios::out | std::ios::binary);
            pcm.seekp(180);  // the codec of the recording's first page
            pcm.put(9);
        }
        LxAudioLeftover leftover;
        ASSERT_TRUE(LxAudioRecovery::ReadLeftover(LxFile(LxString(killed.string())), leftover));
        LxAudioController into;
        std::map<int, int> idMap;
        AssertRecorder reports;
        EXPECT_EQ(LxAudioRecovery::CopyStoredClips(into, leftover, idMap), damaged ? 0 : 1);
        if (damaged) {
            ASSERT_EQ(reports.Count(), 1u);
            EXPECT_EQ(reports.Reports()[0].message, "leftover clip " + std::to_string(clipID) +
                                                        " is damaged and was not copied: " + killed.string());
        } else {
            ASSERT_EQ(idMap.count(clipID), 1u);
            EXPECT_EQ(ClipBytes(into, idMap[clipID]), stored);
        }
        EXPECT_TRUE(fs::exists(killed / "raw.lxa"));
    }
}

TEST_F(CaptureJournal, EndedRecordingsStayUntilASaveCommitsThem) {
    TempDir scratch;
    const LxFile parent = scratch.Child("work");
    std::vector<unsigned char> input = MonoBytes(44100 + 900, 9);
    std::vector<unsigned char> stored;
    {
        LxAudioController controller(parent);
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
        ASSERT_NO_FATAL_FAILURE(Feed(input));
        const int clipID = controller.StopCapture();
        stored = ClipBytes(controller, clipID);
        EXPECT_EQ(controller.GetUncommittedRecordingCount(), 1);
        // A save that fails commits nothing.
        EXPECT_FALSE(controller.WriteTo(static_cast<ILxStream*>(nullptr)));
        EXPECT_EQ(controller.GetUncommittedRecordingCount(), 1);
        // A capture that delivered nothing leaves no journal behind.
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
        EXPECT_EQ(controller.StopCapture(), -1);
        EXPECT_EQ(Journals(controller).size(), 1u);
    }
    // The destroyed controller kept its journal, and only that.
    std::vector<LxAudioLeftover> leftovers = LxAudioRecovery::FindLeftovers(parent);
    ASSERT_EQ(leftovers.size(), 1u);
    ASSERT_EQ(leftovers[0].recordings.size(), 1u);
    EXPECT_TRUE(leftovers[0].recordings[0].ended);
    EXPECT_EQ(LxFileUtil::ListFiles(leftovers[0].directory, "").size(), 2u);  // the journal and the lock file
    EXPECT_EQ(Recovered(leftovers[0]), stored);
    EXPECT_TRUE(LxAudioRecovery::DeleteLeftover(leftovers[0]));
    EXPECT_TRUE(LxAudioRecovery::FindLeftovers(parent).empty());

    // A successful save commits the recordings that had ended; the directory then goes.
    {
        LxAudioController controller(parent);
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
        ASSERT_NO_FATAL_FAILURE(Feed(input));
        ASSERT_NE(controller.StopCapture(), -1);
        auto out = LxStreamUtil::CreateFileStreamReadWrite(scratch.Child("saved.lxp"), kLxStreamWrite, 0x3f3f3f3f,
                                                           0x3f3f3f3f);
        ASSERT_TRUE(controller.WriteTo(out.get()));
        EXPECT_EQ(controller.GetUncommittedRecordingCount(), 0);
        EXPECT_TRUE(Journals(controller).empty());
    }
    EXPECT_TRUE(LxFileUtil::ListDirectories(parent).empty());

    // The default controller deletes its directory whatever it holds.
    LxFile temporary;
    {
        LxAudioController controller;
        temporary = controller.GetTemporaryDirectory();
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
        ASSERT_NO_FATAL_FAILURE(Feed(input));
    }
    EXPECT_FALSE(temporary.Exists());
}

TEST_F(CaptureJournal, ACaptureEndsItselfBeforeTheDiskFills) {
    TempDir scratch;
    LxAudioController controller(scratch.Child("work"));
    CallbackRecorder recorder;
    const double bytesPerSecond = 2 * 88200.0 + 4096.0;
    // A disk with room for fifteen seconds of capture (the platform's simulated
    // disk: every file write counts against it, and the free space follows).
    struct DiskSpace {
        explicit DiskSpace(int64_t bytes) { LxFaultInjection::SetDiskSpace(bytes); }
        ~DiskSpace() { LxFaultInjection::Reset(); }
    } disk(static_cast<int64_t>(15 * bytesPerSecond));

    // A reserve that leaves less than ten seconds: refused, with the reason.
    {
        AssertRecorder reports;
        controller.SetCaptureDiskReserve(static_cast<int64_t>(6 * bytesPerSecond));
        EXPECT_FALSE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder));
        ASSERT_EQ(reports.Count(), 1u);
        EXPECT_NE(reports.Reports()[0].message.find("capture refused: the disk of "), std::string::npos);
        EXPECT_EQ(controller.StopCapture(), -1);
        EXPECT_TRUE(Journals(controller).empty());
    }

    // Without it the capture ends itself with about five seconds recorded, as
    // StopCapture would, and tells the host; StopCapture then returns its clip once.
    controller.SetCaptureDiskReserve(0);
    LxSimulatedWaveDriver::Instance().SetSpeed(4.0);
    std::vector<unsigned char> input = MonoBytes(20 * 44100, 3);
    LxSimulatedWaveDriver::Instance().FeedInput(input.data(), input.size());
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder));
    ASSERT_TRUE(recorder.WaitFor(kLxCallBackCaptureEnded));
    EXPECT_FALSE(controller.IsCapturing());
    const CallbackEvent ended = recorder.Events().back();
    EXPECT_EQ(ended.kind, kLxCallBackCaptureEnded);
    const int clipID = static_cast<int>(ended.value);
    ASSERT_GT(clipID, 0);
    EXPECT_EQ(controller.StopCapture(), clipID);
    EXPECT_EQ(controller.StopCapture(), -1);
    // Everything captured up to the end is in the clip, and is the signal's start.
    const std::vector<unsigned char> stored = ClipBytes(controller, clipID);
    ASSERT_GT(stored.size(), 0u);
    ASSERT_LT(stored.size(), input.size());
    EXPECT_TRUE(std::equal(stored.begin(), stored.end(), input.begin()));
    EXPECT_EQ(controller.GetUncommittedRecordingCount(), 1);
    EXPECT_EQ(LxFaultInjection::Injected(), 0);  // no write ever failed
}

TEST_F(CaptureJournal, ACaptureEndsItselfBeforeTheStoreIsFull) {
    // Projects whose "raw.lxa" is a hole just short of the 2 GiB a member may
    // hold, loaded in place: the hole is never copied.
    TempDir scratch;
    LxAudioController controller(scratch.Child("work"));
    CallbackRecorder recorder;
    constexpr int64_t kPage = 176400;  // two seconds of mono
    LxAudioDamageReport report;

    // Room for four pages: less than ten seconds, refused with the reason.
    WriteFillerProject(scratch.Child("small.lxp"), kMemberLimit - 4 * kPage - 100);
    ASSERT_TRUE(controller.ReadVerifiedInPlace(scratch.Child("small.lxp"), report));
    {
        AssertRecorder reports;
        EXPECT_FALSE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder));
        ASSERT_EQ(reports.Count(), 1u);
        EXPECT_EQ(reports.Reports()[0].message,
                  "capture refused: the store has room for 8 s of recording (a store member holds at most 2 GiB)");
        EXPECT_EQ(controller.StopCapture(), -1);
        EXPECT_TRUE(Journals(controller).empty());
    }

    // Room for seven pages (14 s): the capture ends itself about ten seconds
    // before the store is full, tells the host why, and keeps all it captured.
    WriteFillerProject(scratch.Child("roomy.lxp"), kMemberLimit - 7 * kPage - 100);
    ASSERT_TRUE(controller.ReadVerifiedInPlace(scratch.Child("roomy.lxp"), report));
    LxSimulatedWaveDriver::Instance().SetSpeed(4.0);
    std::vector<unsigned char> input = MonoBytes(20 * 44100, 5);
    LxSimulatedWaveDriver::Instance().FeedInput(input.data(), input.size());
    AssertRecorder reports;
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder));
    ASSERT_TRUE(recorder.WaitFor(kLxCallBackCaptureEnded));
    EXPECT_FALSE(controller.IsCapturing());
    EXPECT_TRUE(controller.CaptureEndedForFullStore());
    const int clipID = static_cast<int>(recorder.Events().back().value);
    ASSERT_GT(clipID, 0);
    EXPECT_EQ(controller.StopCapture(), clipID);
    const std::vector<unsigned char> stored = ClipBytes(controller, clipID);
    ASSERT_GT(stored.size(), 0u);
    ASSERT_LE(stored.size(), static_cast<size_t>(7 * kPage));
    EXPECT_TRUE(std::equal(stored.begin(), stored.end(), input.begin()));
    // What the journal holds is what the clip holds: nothing was refused.
    EXPECT_EQ(controller.GetAudioFile()->GetRoomRefusals(), 0);
    EXPECT_EQ(reports.Count(), 0u);
    EXPECT_EQ(controller.GetUncommittedRecordingCount(), 1);
}

TEST_F(CaptureJournal, DamageEndsARecordingWhereItIsAndIsNamed) {
    TempDir scratch;
    const LxFile journalFile = scratch.Child("capture-000001.lxcj");
    const std::vector<unsigned char> signal = MonoBytes(4 * 4410, 2);
    {
        LxAudioCaptureJournalFile journal;
        ASSERT_TRUE(journal.Create(journalFile, 1700000000000));
        for (int i = 0; i < 4; ++i) {
            LxAudioCaptureData item(signal.data() + i * 8820, 8820, 1.0f, 0);
            ASSERT_TRUE(journal.AppendBuffer(item));
        }
        ASSERT_TRUE(journal.AppendEnd(7));
    }
    const std::string original = [&] {
        std::ifstream in(Native(journalFile), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }();
    constexpr int kHeader = 24, kRecord = 32 + 8820;
    struct Case {
        const char* what;
        size_t cutAt;       // the file is cut to this length (npos: kept whole)
        long flipAt;        // a byte flipped here (-1: none)
        int64_t frames;     // what recovery gives back
        bool ended;
        const char* report;  // start of the one report expected, or "" for none
    };
    const std::vector<Case> cases = {
        {"intact", std::string::npos, -1, 4 * 4410, true, ""},
        {"cut inside the third record (a kill)", kHeader + 2 * kRecord + 100, -1, 2 * 4410, false, ""},
        {"a flipped sample in the third record", std::string::npos, kHeader + 2 * kRecord + 500, 2 * 4410, false,
         "capture journal damaged at byte 17728; its recording ends there"},
        {"a flipped length in the second record", std::string::npos, kHeader + kRecord + 5, 4410, false,
         "capture journal damaged at byte 8876; its recording ends there"},
        {"a damaged header", std::string::npos, 9, 0, false, "capture journal unreadable (damaged header)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = original.substr(0, c.cutAt);
        if (c.flipAt >= 0) bytes[static_cast<size_t>(c.flipAt)] ^= 0x40;
        std::ofstream(Native(journalFile), std::ios::binary | std::ios::trunc) << bytes;
        LxAudioLeftover leftover = CopyAsLeftover(journalFile, scratch, "damaged");
        ASSERT_EQ(leftover.recordings.size(), 1u);
        EXPECT_EQ(leftover.recordings[0].frames, c.frames);
        EXPECT_EQ(leftover.recordings[0].ended, c.ended);
        AssertRecorder reports;
        std::vector<int> ids;
        std::vector<unsigned char> rebuilt = Recovered(leftover, &ids);
        EXPECT_EQ(ids.size(), c.frames > 0 ? 1u : 0u);
        EXPECT_EQ(rebuilt.size(), static_cast<size_t>(c.frames) * 2);
        EXPECT_TRUE(std::equal(rebuilt.begin(), rebuilt.end(), signal.begin()));
        if (*c.report == '\0') {
            EXPECT_EQ(reports.Count(), 0u);
        } else {
            ASSERT_EQ(reports.Count(), 1u);
            EXPECT_EQ(reports.Reports()[0].message.rfind(c.report, 0), 0u) << reports.Reports()[0].message;
            EXPECT_EQ(reports.Reports()[0].sourceFile, "source/components/audiocore/LxAudioRecovery");
        }
    }
    // A live controller's directory is refused, by name.
    LxAudioController live(scratch.Child("live"));
    AssertRecorder reports;
    LxAudioLeftover leftover;
    EXPECT_FALSE(LxAudioRecovery::ReadLeftover(live.GetTemporaryDirectory(), leftover));
    ASSERT_EQ(reports.Count(), 1u);
    EXPECT_EQ(reports.Reports()[0].message,
              "working directory in use by a live controller: " + live.GetTemporaryDirectory().GetPath().str());
}
