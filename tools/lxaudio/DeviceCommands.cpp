// Commands that use the sound devices: devices, record, play. The driver is the
// platform's own unless LXAUDIO_WAVE_DRIVER names another ("alsa", "winmm",
// "simulated").
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include "LxAudioCore.h"
#include "LxAudioDeviceMap.h"
#include "LxCliAssertLog.h"
#include "LxCliCommands.h"
#include "LxCliDeviceSession.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliFileSystem.h"
#include "LxCliInterrupt.h"
#include "LxCliJsonWriter.h"
#include "LxCliProject.h"
#include "LxCliSimulatedInput.h"
#include "LxCliUnits.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTick = std::chrono::milliseconds(100);

// What a capture writes: 16-bit mono at 44100 Hz.
constexpr double kCaptureBytesPerSecond = 88200.0;
// Room kept beyond the project's size for its save (the store's records and
// the file system's own blocks).
constexpr int64_t kSaveMargin = 1 << 20;
// A recording stops while this many seconds of it could still be saved; the
// level meter warns below a minute.
constexpr double kStopBelowSeconds = 2.0;
constexpr double kWarnBelowSeconds = 60.0;
// The engine refuses to start a capture with less than about ten seconds of room.
constexpr double kRefuseBelowSeconds = 10.0;
// Why a recording stops (or cannot start) when the project's store is full: a
// store member holds at most 2 GiB, and raw audio only shrinks when compressed
// and compacted.
const char* const kStoreFull =
    "the project's store is full (2 GiB of raw audio); compress and compact it to record more";

std::string Bytes(int64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

// Waits one tick; true when the user pressed Enter. stdin at its end (a file,
// /dev/null) stops being watched.
bool EnterPressed(bool& watchStdin) {
    if (watchStdin) {
        char bytes[256];
        const int got = LxStandardInput::ReadWithin(bytes, sizeof bytes, static_cast<int>(kTick.count()));
        if (got < 0) watchStdin = false;
        return got > 0 && std::find(bytes, bytes + got, '\n') != bytes + got;
    }
    std::this_thread::sleep_for(kTick);
    return false;
}

std::string MinutesSeconds(double seconds) {
    char text[32];
    int minutes = static_cast<int>(seconds / 60);
    std::snprintf(text, sizeof text, "%02d:%04.1f", minutes, seconds - minutes * 60);
    return text;
}

// "[#########...........]  -12 dB" for a level of 0..1 (full scale).
std::string Meter(float level) {
    constexpr int kWidth = 24;
    level = std::clamp(level, 0.0f, 1.0f);
    // The bar follows decibels from -60 to 0, as level meters do.
    double db = level > 0 ? 20.0 * std::log10(level) : -120.0;
    int filled = static_cast<int>(std::clamp((db + 60.0) / 60.0, 0.0, 1.0) * kWidth + 0.5);
    char text[80];
    std::snprintf(text, sizeof text, "[%s%s] %4.0f dB", std::string(static_cast<size_t>(filled), '#').c_str(),
                  std::string(static_cast<size_t>(kWidth - filled), '.').c_str(), std::max(db, -99.0));
    return text;
}

}  // namespace

namespace LxCliCommands {

int Devices(const LxCliGlobal&, bool json) {
    std::map<int, LxString> devices;
    GetAudioCaptureDeviceMap(devices);
    if (json) {
        LxCliJsonWriter out;
        out.BeginArray();
        for (const auto& [id, name] : devices) {
            out.BeginObject();
            out.Key("id").Int(id);
            out.Key("device").Int(id >> 16);
            out.Key("line").Int(id & 0xFFFF);
            out.Key("name").String(name.str());
            out.EndObject();
        }
        out.EndArray();
        std::fputs(out.Text().c_str(), stdout);
        return 0;
    }
    if (devices.empty()) {
        std::printf("no capture devices\n");
        return 0;
    }
    std::printf("%8s  %s\n", "id", "capture device");
    for (const auto& [id, name] : devices) std::printf("%8d  %s\n", id, name.c_str());
    return 0;
}

int Record(const LxCliGlobal& global, const std::string& path, const LxCliRecordOptions& options) {
    LxCliFileSafety::RefuseReadOnly(path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kWrite);
    // The journals of a recording live in the project's working folder; without
    // it the folder cannot be written, and the recording could not be saved.
    if (!project.HasWorkingFolder())
        throw LxCliFailure("cannot record into project", path,
                           "its folder cannot be written, so the recording could be neither kept nor saved");
    LxAudioController& controller = project.Controller();
    const int device = options.device < 0 ? 0 : options.device;
    LxCliSimulatedInput::Feed(*global.log);
    const std::string folder = LxCliFileSystem::FolderOf(path);
    const LxFile folderFile{LxString(folder)};
    // Room for the save: the new project is written beside the old one, so the
    // capture leaves the old project's size and a margin free; the recording's
    // own share of the save is watched below, as it grows.
    const int64_t reserve = LxCliFileSystem::SizeOnDisk(path) + kSaveMargin;
    controller.SetCaptureDiskReserve(reserve);
    // Too little room for ten seconds of recording and its save: refused
    // before anything starts (the engine refuses on its own count too).
    const int64_t freeAtStart = LxFileUtil::GetAvailableDiskSpace(folderFile);
    if (freeAtStart >= 0 &&
        static_cast<double>(freeAtStart - reserve) < kRefuseBelowSeconds * 3.0 * kCaptureBytesPerSecond)
        throw LxCliFailure("cannot record into project", path,
                           "the disk is nearly full (" + Bytes(freeAtStart) + " free; the save alone needs " +
                               Bytes(reserve) + ")");
    // The engine refuses too, on its own count; this says why in the tool's words.
    if (controller.GetAudioFile() != nullptr &&
        static_cast<double>(controller.GetAudioFile()->GetRoomForPCM(1)) < kRefuseBelowSeconds * kCaptureBytesPerSecond)
        throw LxCliFailure("cannot record into project", path, kStoreFull);
    LxCliDeviceSession session(controller);
    const int target = options.seconds > 0 ? static_cast<int>(std::ceil(options.seconds * 10 - 1e-9)) : 0;
    size_t mark = global.log->Mark();
    if (!session.StartCapture(device, options.volume, target)) {
        session.StopCapture();
        std::string why = global.log->Summary(mark);
        const int64_t free = LxFileUtil::GetAvailableDiskSpace(folderFile);
        if (free >= 0 && free < reserve + kRefuseBelowSeconds * kCaptureBytesPerSecond)
            why = "the disk is nearly full (" + Bytes(free) + " free, and the save needs " + Bytes(reserve) + ")";
        throw LxCliFailure("cannot record from capture device " + std::to_string(device), "",
                           why.empty() ? "the device did not start (see lxaudio devices)" : why);
    }

    const bool terminal = LxStandardError::IsTerminal();
    bool watchStdin = true;
    std::fprintf(stderr, "recording from device %d; press Enter or Ctrl-C to stop%s\n", device,
                 options.seconds > 0 ? (", or wait " + LxCliUnits::Seconds(static_cast<long long>(
                                                           options.seconds * kLxFrameRate))).c_str()
                                     : "");
    const auto start = Clock::now();
    int reportedSecond = 0;
    std::string why = "stopped";
    std::string endedItself;  // why the capture ended before it was asked to
    for (;;) {
        if (LxCliInterrupt::Requested()) {
            why = "interrupted";
            break;
        }
        if (EnterPressed(watchStdin)) break;
        double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        double captured = session.CapturedBuffers() * 0.1;  // one report per 100 ms buffer
        const int64_t free = LxFileUtil::GetAvailableDiskSpace(folderFile);
        if (session.EndedItself() || !controller.IsCapturing()) {
            // The engine tells why on its own thread, just after the capture ended.
            for (int i = 0; i < 10 && !session.EndedItself(); ++i) std::this_thread::sleep_for(kTick / 2);
            if (session.EndedItself() && controller.CaptureEndedForFullStore()) {
                endedItself = kStoreFull;
            } else if (free >= 0 && free < reserve + kWarnBelowSeconds * kCaptureBytesPerSecond) {
                endedItself = "the disk is nearly full (" + Bytes(free) + " left)";
            } else {
                endedItself = session.EndedItself() ? "its journal could not be written to disk"
                                                    : "the capture device stopped";
            }
            break;
        }
        // Seconds of recording that can still be saved: every second captured
        // takes two seconds' worth now (journal and store) and one more in the
        // new project, beside what is captured so far.
        double left = -1;
        if (free >= 0) {
            const double capturedBytes = captured * kCaptureBytesPerSecond;
            left = (static_cast<double>(free - reserve) - capturedBytes) / (3.0 * kCaptureBytesPerSecond);
            if (left < kStopBelowSeconds) {
                endedItself = "the disk is nearly full (" + Bytes(free) + " left, and the save needs room too)";
                break;
            }
        }
        // The engine's own figure: seconds until the disk is full beyond the
        // reserve; it ends the capture about ten seconds before that.
        const double engineLeft = controller.GetCaptureSecondsOfDiskLeft();
        double stopsIn = left >= 0 ? left - kStopBelowSeconds : -1;
        if (engineLeft >= 0) {
            if (left < 0 || engineLeft < left) left = engineLeft;
            const double engineStopsIn = std::max(0.0, engineLeft - kRefuseBelowSeconds);
            if (stopsIn < 0 || engineStopsIn < stopsIn) stopsIn = engineStopsIn;
        }
        std::string warning =
            left >= 0 && left < kWarnBelowSeconds
                ? "disk nearly full, recording stops in " + std::to_string(static_cast<int>(std::max(0.0, stopsIn))) +
                      " s"
                : std::string();
        // The store's room, when it runs out before the disk's.
        const double storeLeft = controller.GetCaptureSecondsOfStoreLeft();
        if (storeLeft >= 0 && storeLeft < kWarnBelowSeconds && (left < 0 || storeLeft < left))
            warning = "project's store nearly full, recording stops in " +
                      std::to_string(static_cast<int>(std::max(0.0, storeLeft - kRefuseBelowSeconds))) + " s";
        if (terminal && !global.quiet) {
            std::fprintf(stderr, "\r%s  %s  captured %.1f s %s", MinutesSeconds(elapsed).c_str(),
                         Meter(session.Level()).c_str(), captured,
                         warning.empty() ? std::string(48, ' ').c_str() : ("! " + warning + " ").c_str());
            std::fflush(stderr);
        } else if (!terminal && !global.quiet && static_cast<int>(captured) > reportedSecond) {
            reportedSecond = static_cast<int>(captured);
            std::fprintf(stderr, "recording: %d.0 s captured, level %s%s\n", reportedSecond,
                         Meter(session.Level()).c_str(), warning.empty() ? "" : (", " + warning).c_str());
        }
        // --seconds counts recorded audio (as a sound card delivers it, in real
        // time); a device that delivers nothing ends the wait a little later.
        if (session.Full() || (options.seconds > 0 && elapsed >= options.seconds + 2.0)) break;
    }
    int clipID = session.StopCapture();
    if (clipID < 1 && session.EndedItself()) clipID = session.EndedClipID();
    if (terminal && !global.quiet) std::fprintf(stderr, "\n");
    if (!endedItself.empty()) {
        why = "stopped early: " + endedItself.substr(0, endedItself.find(" ("));
        std::fprintf(stderr, "lxaudio: recording stopped: %s; saving what was recorded\n", endedItself.c_str());
    }
    LxCliInterrupt::Clear();  // the save below must not be cut short
    const bool kept = controller.GetUncommittedRecordingCount() > 0;
    const std::string recover = "'lxaudio recover " + path + "' adds it to the project";
    if (clipID < 1) {
        if (kept && session.CapturedBuffers() > 0)
            throw LxCliFailure("cannot store the recording in project", path,
                               (global.log->CountSince(mark) > 0 ? global.log->Summary(mark) + "; " : std::string()) +
                                   "the recording is kept: " + recover);
        controller.CommitRecordings();  // an empty journal holds nothing to keep
        throw LxCliFailure("nothing was recorded", "", "the device delivered no audio");
    }
    const long long frames = controller.GetClip(clipID)->WorthInFrames();
    try {
        project.Save();
    } catch (const LxCliFailure& failure) {
        if (!kept) throw;
        // The recording's journal stays in the working folder (no save
        // committed it): say so, on the same one line.
        throw LxCliFailure(std::string(failure.what()) + "; the recording (" + LxCliUnits::Seconds(frames) +
                               ") is kept: " + recover + " once it can be saved",
                           "", "");
    }
    auto clip = controller.GetClip(clipID);
    std::printf("recorded clip %d: %d frames (%s), %s (%s)\nsaved %s\n", clipID, clip->WorthInFrames(),
                LxCliUnits::Seconds(clip->WorthInFrames()).c_str(),
                clip->GetMaximumNumberOfChannels() == 2 ? "stereo" : "mono", why.c_str(), project.Path().c_str());
    return 0;
}

int Play(const LxCliGlobal& global, const std::string& path, const LxCliPlayOptions& options) {
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kRead);
    LxAudioController& controller = project.Controller();
    auto clip = project.LoadClip(options.clipID);
    const int length = clip->WorthInFrames();
    const int from = options.from.empty() ? 0 : LxCliUnits::ParseFrames(options.from, length);
    const int to = options.to.empty() ? length : LxCliUnits::ParseFrames(options.to, length);
    if (from >= to || to > length)
        throw LxCliFailure("cannot play clip " + std::to_string(options.clipID), "",
                           "--from must lie before --to, inside the clip (" + LxCliUnits::Seconds(length) + ")",
                           LxCliFailure::kExitUsage);
    LxCliDeviceSession session(controller);
    size_t mark = global.log->Mark();
    session.StartPlayBack(options.clipID, from + 1, to == length ? -1 : to + 1);
    // A device that fails to open never reports its start.
    const auto start = Clock::now();
    while (!session.Started() && !session.Stopped() && Clock::now() - start < std::chrono::seconds(5))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (!session.Started()) {
        controller.StopPlayBack(options.clipID);
        std::string why = global.log->Summary(mark);
        throw LxCliFailure("cannot play clip " + std::to_string(options.clipID), "",
                           why.empty() ? "the default output device did not start" : why);
    }
    const bool terminal = LxStandardError::IsTerminal();
    const double total = (to - from) / double{kLxFrameRate};
    if (!global.quiet && !terminal)
        std::fprintf(stderr, "playing clip %d from %s, %s\n", options.clipID, MinutesSeconds(from / double{kLxFrameRate}).c_str(),
                     LxCliUnits::Seconds(to - from).c_str());
    bool interrupted = false;
    bool watchStdin = true;
    while (!session.Stopped()) {
        if (LxCliInterrupt::Requested() || EnterPressed(watchStdin)) {
            interrupted = true;
            break;
        }
        if (terminal && !global.quiet) {
            double played = std::min(total, session.Position() / double{kLxFrameRate});
            std::fprintf(stderr, "\rplaying clip %d  %s / %s ", options.clipID,
                         MinutesSeconds(from / double{kLxFrameRate} + played).c_str(), MinutesSeconds(to / double{kLxFrameRate}).c_str());
            std::fflush(stderr);
        }
    }
    controller.StopPlayBack(options.clipID);
    if (terminal && !global.quiet) std::fprintf(stderr, "\n");
    std::printf("%s clip %d: %s of %s\n", interrupted ? "stopped" : "played", options.clipID,
                LxCliUnits::Seconds(std::min<long long>(session.Position(), to - from)).c_str(),
                LxCliUnits::Seconds(to - from).c_str());
    return 0;
}

}  // namespace LxCliCommands
