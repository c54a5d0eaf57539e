// lxaudio: a command-line host of the LxAudioCore engine. It keeps lecture audio
// in a project (one file, or a directory with --dir), imports, records, edits,
// mixes, plays and exports it, and draws waveforms. See `lxaudio --help`.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>
#include "LxAudioConstants.h"
#include "LxCliAssertLog.h"
#include "LxCliCommands.h"
#include "LxCliEditor.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliInterrupt.h"
#include "LxCliUnits.h"

namespace {

constexpr const char* kProjectHelp = "Project: a file (whole store in one stream, e.g. talk.lxp) or a directory";

// Format options shared by export and mix.
void AddFormatOptions(CLI::App* command, int& rate, int& channels, int& bits, bool channelsChosenByMix) {
    command->add_option("--rate", rate, "Frames per second of the WAV file (default kLxFrameRate)")
        ->check(CLI::Range(1000, 768000));
    command
        ->add_option("--channels", channels,
                     channelsChosenByMix ? "1 or 2 (default: stereo when any clip is mixed)"
                                         : "1 or 2 (default: the clip's own)")
        ->check(CLI::Range(1, 2));
    command->add_option("--bits", bits, "16 or 24 (integer) or 32 (float); default 16")
        ->check(CLI::IsMember({16, 24, 32}));
}

// The operations of `edit` in command-line order: everything after the
// subcommand, its project and its clip, except the global flags.
std::vector<std::string> EditTokens(int argc, char** argv) {
    std::vector<std::string> tokens;
    int positionals = 0;
    bool inEdit = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (!inEdit) {
            inEdit = arg == "edit";
            continue;
        }
        if (arg == "-v" || arg == "--verbose" || arg == "-q" || arg == "--quiet" || arg == "--dir" || arg == "--")
            continue;
        if (positionals < 2) {
            ++positionals;  // project, clip
            continue;
        }
        tokens.push_back(arg);
    }
    return tokens;
}

// The command a command line names: its first argument that is no flag (the
// global options are all flags); "" when there is none.
std::string NamedCommand(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-') return argv[i];
    }
    return "";
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"lxaudio: record, import, edit, mix, play and export lecture audio with the LxAudioCore engine.\n"};
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "lxaudio 0.1.0");

    LxCliGlobal global;
    app.add_flag("-v,--verbose", global.verbose, "Print every problem the engine reports, as it happens");
    app.add_flag("-q,--quiet", global.quiet, "No progress bars");
    app.add_flag("--dir", global.directory,
                 "With new: make the project a directory of chunk files (other commands find the form on disk)");

    std::function<int()> run;
    std::string project;
    int clipID = -1;

    auto* cmdNew = app.add_subcommand("new", "Create an empty project");
    cmdNew->add_option("project", project, kProjectHelp)->required();
    cmdNew->callback([&] { run = [&] { return LxCliCommands::New(global, project); }; });

    bool json = false;
    auto* cmdInfo = app.add_subcommand("info", "List the clips and the store of a project");
    cmdInfo->add_option("project", project, kProjectHelp)->required();
    cmdInfo->add_flag("--json", json, "Machine-readable output");
    cmdInfo->callback([&] { run = [&] { return LxCliCommands::Info(global, project, json); }; });

    std::string salvageOutput;
    bool withSilence = false;
    auto* cmdSalvage = app.add_subcommand(
        "salvage", "Copy the intact clips of a damaged project into a new project (keeping their order)");
    cmdSalvage->add_option("project", project, "The damaged project")->required();
    cmdSalvage->add_option("new", salvageOutput, "The new project (must not exist)")->required();
    cmdSalvage->add_flag("--with-silence", withSilence,
                         "Also copy damaged clips whose own record is intact, with silence where their audio is lost");
    cmdSalvage->callback(
        [&] { run = [&] { return LxCliCommands::Salvage(global, project, salvageOutput, withSilence); }; });

    LxCliImportOptions import;
    auto* cmdImport = app.add_subcommand(
        "import", "Import WAV (8/16/24/32-bit, float, any rate) and Ogg Vorbis files; each becomes a clip");
    cmdImport->add_option("project", project, kProjectHelp)->required();
    cmdImport->add_option("files", import.files, "Audio files")->required();
    cmdImport->add_flag("--denoise", import.denoise, "Run the noise suppressor over the imported audio");
    cmdImport
        ->add_option("--gap", import.gapDeciSeconds,
                     "Also store one clip of all files in a row, with DS tenths of a second of silence between")
        ->check(CLI::Range(0, 36000));
    cmdImport->callback([&] { run = [&] { return LxCliCommands::Import(global, project, import); }; });

    std::vector<std::string> ops;
    auto* cmdEdit = app.add_subcommand("edit", "Edit a clip; every operation stores a new clip");
    cmdEdit->footer(LxCliEditor::Usage() +
                    "\nExample: lxaudio edit talk.lxp 3 delete 0 1.5s gain 10s 20s -6dB fadeout 2s");
    cmdEdit->add_option("project", project, kProjectHelp)->required();
    cmdEdit->add_option("clip", clipID, "ID of the clip to edit")->required();
    cmdEdit->add_option("ops", ops, "Operations and their arguments (see below)")->required();
    // Levels such as "-6dB" look like options to the parser: it hands them over
    // as extras, and the operations are then read from the command line itself.
    cmdEdit->allow_extras();
    cmdEdit->callback([&] {
        run = [&] { return LxCliCommands::Edit(global, project, clipID, EditTokens(argc, argv)); };
    });

    LxCliMixOptions mix;
    auto* cmdMix = app.add_subcommand("mix", "Play clips at once, each from its own start, into a WAV file");
    cmdMix->footer(
        "Entry: CLIP@OFFSET[:WEIGHT][:fadein|:fadeout], e.g. 3@0 5@2500:0.4:fadein\n"
        "OFFSET is where the clip starts in the mix (a plain number is milliseconds; 2.5s, 110250f also work);\n"
        "WEIGHT multiplies its level (0.5 or -6dB; the sum is not normalised); fadein/fadeout fades the clip\n"
        "over its whole length.");
    cmdMix->add_option("project", project, kProjectHelp)->required();
    cmdMix->add_option("entries", mix.entries, "CLIP@OFFSET[:WEIGHT][:fadein|:fadeout]")->required();
    cmdMix->add_option("-o,--output", mix.output, "WAV file to write")->required();
    AddFormatOptions(cmdMix, mix.rate, mix.channels, mix.bits, true);
    cmdMix->callback([&] { run = [&] { return LxCliCommands::Mix(global, project, mix); }; });

    LxCliExportOptions exportOptions;
    auto* cmdExport = app.add_subcommand("export", "Write a clip as a WAV file");
    cmdExport->add_option("project", project, kProjectHelp)->required();
    cmdExport->add_option("clip", exportOptions.clipID, "ID of the clip")->required();
    cmdExport->add_option("output", exportOptions.output, "WAV file to write")->required();
    AddFormatOptions(cmdExport, exportOptions.rate, exportOptions.channels, exportOptions.bits, false);
    cmdExport->callback([&] { run = [&] { return LxCliCommands::Export(global, project, exportOptions); }; });

    auto* cmdCompress = app.add_subcommand("compress", "Compress every raw page of the project to Vorbis");
    int jobs = 0;
    cmdCompress->add_option("project", project, kProjectHelp)->required();
    cmdCompress->add_option("-j,--jobs", jobs,
                            "Pages encoded at once (default: one per core); the stored bytes are the same for any number")
        ->check(CLI::Range(0, 256));
    cmdCompress->callback([&] { run = [&] { return LxCliCommands::Compress(global, project, jobs); }; });

    std::vector<int> keep;
    auto* cmdCompact = app.add_subcommand(
        "compact", "Rewrite the store keeping only the audio that clips still use; clips get new IDs");
    cmdCompact->add_option("project", project, kProjectHelp)->required();
    cmdCompact->add_option("--keep", keep, "Keep only these clips (default: all); the others are dropped");
    cmdCompact->callback([&] { run = [&] { return LxCliCommands::Compact(global, project, keep); }; });

    LxCliWaveformOptions waveform;
    auto* cmdWaveform = app.add_subcommand("waveform", "Draw a clip's waveform into a PNG picture");
    cmdWaveform->add_option("project", project, kProjectHelp)->required();
    cmdWaveform->add_option("clip", waveform.clipID, "ID of the clip")->required();
    cmdWaveform->add_option("output", waveform.output, "PNG file to write")->required();
    cmdWaveform->add_option("--width", waveform.width, "Pixels (default 1200)");
    cmdWaveform->add_option("--height", waveform.height, "Pixels (default 240)");
    cmdWaveform->callback([&] { run = [&] { return LxCliCommands::Waveform(global, project, waveform); }; });

    bool devicesJson = false;
    auto* cmdDevices = app.add_subcommand("devices", "List the capture devices");
    cmdDevices->add_flag("--json", devicesJson, "Machine-readable output");
    cmdDevices->callback([&] { run = [&] { return LxCliCommands::Devices(global, devicesJson); }; });

    LxCliRecordOptions record;
    auto* cmdRecord = app.add_subcommand(
        "record", "Record from a sound card into a new clip; stops on Enter, Ctrl-C or after --seconds");
    cmdRecord->add_option("project", project, kProjectHelp)->required();
    cmdRecord->add_option("--seconds", record.seconds, "Stop after this many seconds")->check(CLI::Range(0.0, 86400.0));
    cmdRecord->add_option("--device", record.device, "Capture device ID (see lxaudio devices; default: the default)");
    cmdRecord->add_option("--volume", record.volume, "Input volume, 0 to 1 (default: leave it as it is)")->check(CLI::Range(0.0, 1.0));
    cmdRecord->callback([&] { run = [&] { return LxCliCommands::Record(global, project, record); }; });

    LxCliRecoverOptions recover;
    auto* cmdRecover = app.add_subcommand(
        "recover", "Add the recordings that a killed or failed command left behind to the project as new clips");
    cmdRecover->footer(
        "Recordings wait in the hidden folder .NAME.work beside the project. Each becomes a new clip, the project\n"
        "is saved, and only then are they removed. --export writes them as WAV files (kLxFrameRate Hz, 16-bit) without\n"
        "opening the project, for when it cannot be opened; they stay in the folder then.");
    cmdRecover->add_option("project", project, kProjectHelp)->required();
    auto* listFlag = cmdRecover->add_flag("--list", recover.list, "Show the interrupted recordings; change nothing");
    cmdRecover->add_option("--export", recover.exportDir, "Write them as WAV files into this folder instead")
        ->excludes(listFlag);
    cmdRecover->callback([&] { run = [&] { return LxCliCommands::Recover(global, project, recover); }; });

    LxCliPlayOptions play;
    auto* cmdPlay = app.add_subcommand("play", "Play a clip on the default output device");
    cmdPlay->footer(LxCliUnits::Help());
    cmdPlay->add_option("project", project, kProjectHelp)->required();
    cmdPlay->add_option("clip", play.clipID, "ID of the clip")->required();
    cmdPlay->add_option("--from", play.from, "Start (default: the clip's start)");
    cmdPlay->add_option("--to", play.to, "End (default: the clip's end)");
    cmdPlay->callback([&] { run = [&] { return LxCliCommands::Play(global, project, play); }; });

    // A word that names no command gets the list of commands (CLI11 would only
    // say that the argument was not expected).
    const std::string named = NamedCommand(argc, argv);
    const std::vector<CLI::App*> commands = app.get_subcommands([](CLI::App*) { return true; });
    if (!named.empty() &&
        std::none_of(commands.begin(), commands.end(), [&](CLI::App* c) { return c->get_name() == named; })) {
        std::string list;
        for (CLI::App* c : commands) list += (list.empty() ? "" : ", ") + c->get_name();
        std::fprintf(stderr, "lxaudio: %s\n",
                     LxCliFailure("unknown command", named, "the commands are " + list + " (lxaudio --help)").what());
        return LxCliFailure::kExitUsage;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }

    LxCliAssertLog log(global.verbose);
    global.log = &log;
    LxCliInterrupt::Install();
    try {
        // Commands on a project, when it needs the system's temporary folder.
        if (!project.empty()) LxCliFileSafety::RequireWorkingSpace(project);
        return run ? run() : 0;
    } catch (const LxCliFailure& failure) {
        std::string line = failure.what();
        // Reports the message does not already carry are summarised after it.
        if (!global.verbose && log.Count() > 0 && line.find("engine reported") == std::string::npos)
            line += " [" + log.Summary() + "]";
        std::fprintf(stderr, "lxaudio: %s\n", line.c_str());
        return failure.ExitCode();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "lxaudio: internal error: %s\n", error.what());
        return 3;
    }
}
