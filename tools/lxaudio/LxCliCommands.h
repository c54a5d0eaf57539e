#pragma once
// The commands of lxaudio. Each takes its parsed arguments, does its work
// through the engine's exported classes, prints what it did (clip IDs of
// everything it stored) on stdout, and throws LxCliFailure when it cannot.
// Commands that change a project save it atomically before they return; a
// command that fails leaves the project file as it was.
#include "LxAudioConstants.h"
#include <string>
#include <vector>

class ILxAudioPlaybackClip;
class LxCliAssertLog;
class LxWAVExporter;

// Options every command shares.
struct LxCliGlobal {
    LxCliAssertLog* log = nullptr;
    bool verbose = false;
    bool quiet = false;  // no progress bars
    bool directory = false;  // the project is (or is to be) a directory of chunk files
};

struct LxCliImportOptions {
    std::vector<std::string> files;
    bool denoise = false;
    int gapDeciSeconds = -1;  // -1: no --gap, each file becomes a clip of its own
};

struct LxCliExportOptions {
    int clipID = -1;
    std::string output;
    int rate = kLxFrameRate;
    int channels = 0;  // 0: the clip's own
    int bits = 16;
};

struct LxCliMixOptions {
    std::vector<std::string> entries;  // CLIP@OFFSET[:WEIGHT][:fadein|:fadeout]
    std::string output;
    int rate = kLxFrameRate;
    int channels = 0;  // 0: chosen by the mix
    int bits = 16;
};

struct LxCliWaveformOptions {
    int clipID = -1;
    std::string output;
    int width = 1200;
    int height = 240;
};

struct LxCliPlayOptions {
    int clipID = -1;
    std::string from;  // times in the tool's syntax; empty: start / end of the clip
    std::string to;
};

struct LxCliRecoverOptions {
    bool list = false;       // show what is there, change nothing
    std::string exportDir;   // write WAV files there instead, without opening the project
};

struct LxCliRecordOptions {
    double seconds = 0;  // 0: until Enter or Ctrl-C
    int device = -1;     // -1: the default device
    float volume = -1.0f;  // -1: leave the input's volume as it is
};

namespace LxCliCommands {

int New(const LxCliGlobal& global, const std::string& project);
int Info(const LxCliGlobal& global, const std::string& project, bool json);
int Import(const LxCliGlobal& global, const std::string& project, const LxCliImportOptions& options);
int Edit(const LxCliGlobal& global, const std::string& project, int clipID, const std::vector<std::string>& ops);
int Mix(const LxCliGlobal& global, const std::string& project, const LxCliMixOptions& options);
int Export(const LxCliGlobal& global, const std::string& project, const LxCliExportOptions& options);
// Copies the clips of a (damaged) project into a new project; withSilence also
// copies damaged clips whose own record is intact, silence in their holes.
int Salvage(const LxCliGlobal& global, const std::string& project, const std::string& output, bool withSilence);
int Compress(const LxCliGlobal& global, const std::string& project, int jobs);
int Compact(const LxCliGlobal& global, const std::string& project, const std::vector<int>& keep);
int Waveform(const LxCliGlobal& global, const std::string& project, const LxCliWaveformOptions& options);
int Devices(const LxCliGlobal& global, bool json);
int Record(const LxCliGlobal& global, const std::string& project, const LxCliRecordOptions& options);
int Play(const LxCliGlobal& global, const std::string& project, const LxCliPlayOptions& options);
int Recover(const LxCliGlobal& global, const std::string& project, const LxCliRecoverOptions& options);

// Shared by the commands that write WAV files: exports clip through exporter
// into output, which appears whole or not at all; throws LxCliFailure.
void WriteWav(const LxCliGlobal& global, LxWAVExporter& exporter, ILxAudioPlaybackClip& clip,
              const std::string& output);

}  // namespace LxCliCommands
