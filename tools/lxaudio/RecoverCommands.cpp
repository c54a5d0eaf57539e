// recover: the recordings that a killed, crashed or failed command left in a
// project's working folder (see LxCliProject), back into the project, or out
// as WAV files when the project itself cannot be opened.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>
#include "LxAudioCore.h"
#include "LxAudioRecovery.h"
#include "LxCliAssertLog.h"
#include "LxCliCommands.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliProject.h"
#include "LxCliRecordings.h"
#include "LxCliUnits.h"

namespace fs = std::filesystem;

namespace {

std::vector<LxAudioLeftover> ToRecover(const std::string& path) {
    std::vector<LxAudioLeftover> found;
    const std::string folder = LxCliProject::WorkingFolder(path);
    std::error_code error;
    if (!fs::is_directory(folder, error)) return found;
    for (LxAudioLeftover& leftover : LxAudioRecovery::FindLeftovers(LxFile(LxString(folder)))) {
        if (LxCliRecordings::NeedsRecovery(leftover)) found.push_back(std::move(leftover));
    }
    return found;
}

// "recorded 2026-11-24 10:31:05" for the clip that recovery made of the n-th
// recording with audio, when the clips and recordings pair up.
std::string RecordedAt(const std::vector<LxAudioInterruptedRecording>& recordings, const std::vector<int>& ids,
                       size_t n) {
    if (recordings.size() != ids.size() || n >= recordings.size()) return "";
    return ", recorded " + LxCliRecordings::LocalTime(recordings[n].startTimeMS);
}

std::string DamagedLine(const LxAudioInterruptedRecording& recording) {
    return "lxaudio: the journal " + recording.journal.GetPath().str() +
           " is damaged; nothing could be read from it";
}

int ListRecordings(const std::string& path, const std::vector<LxAudioLeftover>& leftovers) {
    if (leftovers.empty()) {
        std::printf("no interrupted recordings of %s\n", path.c_str());
        return 0;
    }
    std::printf("interrupted recordings of %s (in %s):\n", path.c_str(), LxCliProject::WorkingFolder(path).c_str());
    std::printf("  %-19s  %11s  %s\n", "recorded", "length", "state");
    int count = 0;
    for (const LxAudioLeftover& leftover : leftovers) {
        for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
            if (!LxCliRecordings::HasAudio(recording) && recording.readable) continue;
            count += LxCliRecordings::HasAudio(recording) ? 1 : 0;
            std::printf("  %-19s  %11s  %s\n", LxCliRecordings::LocalTime(recording.startTimeMS).c_str(),
                        LxCliUnits::Seconds(recording.frames).c_str(), LxCliRecordings::State(recording).c_str());
        }
    }
    if (count > 0)
        std::printf("'lxaudio recover %s' adds %s to the project\n", path.c_str(), count == 1 ? "it" : "them");
    return 0;
}

// A name in dir for the recording that started at startTimeMS, not taken yet.
std::string ExportName(const std::string& dir, const std::string& path, int64_t startTimeMS) {
    fs::path project(path);
    if (!project.has_filename()) project = project.parent_path();
    std::string stamp = LxCliRecordings::LocalTime(startTimeMS);
    for (char& c : stamp) c = c == ' ' ? '-' : c == ':' ? '.' : c;
    const std::string stem = project.stem().string() + "-recorded-" + stamp;
    std::error_code error;
    for (int n = 1;; ++n) {
        const fs::path candidate = fs::path(dir) / (stem + (n > 1 ? "-" + std::to_string(n) : "") + ".wav");
        if (!fs::exists(candidate, error)) return candidate.string();
    }
}

int ExportRecordings(const LxCliGlobal& global, const std::string& path, const std::string& dir,
                     const std::vector<LxAudioLeftover>& leftovers) {
    if (leftovers.empty()) {
        std::printf("nothing to recover for %s\n", path.c_str());
        return 0;
    }
    LxCliFileSafety::RefuseOutput("cannot write recordings into", dir, path);
    // The project is not opened: the recordings go through a store of their
    // own, in the system's temporary folder.
    const std::string problem = LxCliFileSafety::TemporaryFolderProblem();
    if (!problem.empty()) throw LxCliFailure("cannot write recordings of", path, problem);
    std::error_code error;
    fs::create_directories(dir, error);
    if (!fs::is_directory(dir, error)) throw LxCliFailure("cannot write recordings into", dir, "not a folder");
    LxAudioController scratch;
    int written = 0;
    for (const LxAudioLeftover& leftover : leftovers) {
        for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
            if (!recording.readable) std::fprintf(stderr, "%s\n", DamagedLine(recording).c_str());
        }
        const std::vector<LxAudioInterruptedRecording> recordings = LxCliRecordings::WithAudio(leftover);
        if (recordings.empty()) continue;
        std::vector<int> ids;
        size_t mark = global.log->Mark();
        if (LxAudioRecovery::RecoverRecordings(scratch, leftover, ids) < 0)
            throw LxCliFailure("cannot read the recordings in", leftover.directory.GetPath().str(),
                               "another lxaudio command is recovering them");
        if (ids.empty())
            throw LxCliFailure("cannot read the recordings in", leftover.directory.GetPath().str(),
                               global.log->CountSince(mark) > 0 ? global.log->Summary(mark) : "nothing could be read");
        for (size_t i = 0; i < ids.size(); ++i) {
            auto clip = scratch.GetClip(ids[i]);
            const int channels = clip->GetMaximumNumberOfChannels() == 2 ? 2 : 1;
            const int64_t started = recordings.size() == ids.size() ? recordings[i].startTimeMS : 0;
            const std::string output = ExportName(dir, path, started);
            auto exporter = scratch.GetWAVExporter(channels, kLxFrameRate, kLxBitsPerSample, nullptr, nullptr);
            LxCliCommands::WriteWav(global, *exporter, *clip, output);
            std::printf("wrote %s: %d frames (%s)%s\n", output.c_str(), clip->WorthInFrames(),
                        LxCliUnits::Seconds(clip->WorthInFrames()).c_str(), RecordedAt(recordings, ids, i).c_str());
            ++written;
        }
    }
    std::printf("%d recording%s written; %s keeps %s until 'lxaudio recover %s' adds %s to the project\n", written,
                written == 1 ? "" : "s", LxCliProject::WorkingFolder(path).c_str(), written == 1 ? "it" : "them",
                path.c_str(), written == 1 ? "it" : "them");
    return 0;
}

}  // namespace

namespace LxCliCommands {

int Recover(const LxCliGlobal& global, const std::string& path, const LxCliRecoverOptions& options) {
    const std::vector<LxAudioLeftover> found = ToRecover(path);
    if (options.list) return ListRecordings(path, found);
    if (!options.exportDir.empty()) return ExportRecordings(global, path, options.exportDir, found);
    if (found.empty()) {
        std::printf("nothing to recover for %s\n", path.c_str());
        return 0;
    }

    LxCliFileSafety::RefuseReadOnly(path);
    LxCliProject project(*global.log);
    try {
        project.Open(path, LxCliProject::Access::kWrite, /*announce*/ false);
    } catch (const LxCliFailure& failure) {
        throw LxCliFailure(std::string(failure.what()) + "; 'lxaudio recover " + path +
                               " --export DIR' writes the recordings as WAV files without opening it",
                           "", "");
    }
    LxAudioController& controller = project.Controller();
    // What the project found when it locked itself (nothing can have come since).
    const std::vector<LxAudioLeftover>& leftovers = project.Interrupted();
    std::vector<std::string> lines;
    std::vector<const LxAudioLeftover*> done;
    for (const LxAudioLeftover& leftover : leftovers) {
        for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
            if (!recording.readable) std::fprintf(stderr, "%s\n", DamagedLine(recording).c_str());
        }
        const std::vector<LxAudioInterruptedRecording> recordings = LxCliRecordings::WithAudio(leftover);
        std::vector<int> ids;
        size_t mark = global.log->Mark();
        if (!recordings.empty()) {
            if (LxAudioRecovery::RecoverRecordings(controller, leftover, ids) < 0) {
                std::fprintf(stderr, "lxaudio: skipped %s: another lxaudio command is reading it\n",
                             leftover.directory.GetPath().str().c_str());
                continue;
            }
            if (ids.empty())
                throw LxCliFailure("cannot read the recordings in", leftover.directory.GetPath().str(),
                                   global.log->CountSince(mark) > 0 ? global.log->Summary(mark)
                                                                    : "nothing could be read");
        }
        for (size_t i = 0; i < ids.size(); ++i) {
            auto clip = controller.GetClip(ids[i]);
            lines.push_back("recovered clip " + std::to_string(ids[i]) + ": " +
                            std::to_string(clip->WorthInFrames()) + " frames (" +
                            LxCliUnits::Seconds(clip->WorthInFrames()) + ")" + RecordedAt(recordings, ids, i));
        }
        if (ids.size() < recordings.size()) {
            // Kept: what could not be read now may be read by a later version.
            std::fprintf(stderr, "lxaudio: %zu of the recordings in %s could not be read; it is kept\n",
                         recordings.size() - ids.size(), leftover.directory.GetPath().str().c_str());
            continue;
        }
        done.push_back(&leftover);
    }
    if (!lines.empty()) project.Save();
    // Only now does the project hold what the leftovers held.
    for (const LxAudioLeftover* leftover : done) {
        if (!LxAudioRecovery::DeleteLeftover(*leftover))
            std::fprintf(stderr, "lxaudio: could not remove %s; its recordings are in the project now\n",
                         leftover->directory.GetPath().str().c_str());
    }
    for (const std::string& line : lines) std::printf("%s\n", line.c_str());
    if (lines.empty()) {
        std::printf("nothing to recover for %s\n", path.c_str());
    } else {
        std::printf("saved %s\n", project.Path().c_str());
    }
    return 0;
}

}  // namespace LxCliCommands
