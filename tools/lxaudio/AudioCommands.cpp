// Commands that move audio in and out of a project and edit it: import, edit,
// mix, export, waveform.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <utility>
#include "LxAudioCore.h"
#include "LxCliAssertLog.h"
#include "LxCliCommands.h"
#include "LxCliEditor.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliFileSystem.h"
#include "LxCliProgressBar.h"
#include "LxCliProject.h"
#include "LxCliUnits.h"
#include "LxCliWaveformImage.h"

namespace fs = std::filesystem;

namespace {

enum class SourceKind { kWav, kVorbis };

std::string FileName(const std::string& path) { return fs::path(path).filename().string(); }

std::string ChannelsName(int channels) { return channels == 2 ? "stereo" : channels == 1 ? "mono" : "?"; }

// One file of an import: what the command line named, what is read, and how
// messages name it.
struct Source {
    std::string file;  // "-": standard input
    std::string path;  // the file read (standard input: its copy in the working directory)
    SourceKind kind = SourceKind::kWav;

    bool IsStandardInput() const { return file == "-"; }
    std::string Name() const { return IsStandardInput() ? "standard input" : FileName(file); }
    std::string Quoted() const { return IsStandardInput() ? "standard input" : "'" + file + "'"; }
};

// Why source cannot be imported, found without importing it; "" when it can
// (and then its kind).
std::string Examine(LxAudioController& controller, Source& source) {
    std::error_code error;
    if (!fs::exists(source.path, error)) return "no such file";
    if (fs::is_directory(source.path, error)) return "it is a folder";
    LxFile file{LxString(source.path)};
    auto wav = controller.GetWAVImporter(nullptr, nullptr, false);
    if (wav->CanImport(file)) {
        source.kind = SourceKind::kWav;
        LxWAVImporter::WAVEheader header;
        if (wav->ReadWAVEheader(file, header) && header.channels > 2)
            return std::to_string(header.channels) + " channels: only mono and stereo are imported";
        return "";
    }
    if (controller.GetNvVorbisImporter(nullptr, nullptr)->CanImport(file)) {
        source.kind = SourceKind::kVorbis;
        return "";
    }
    return "not a WAV or Ogg Vorbis file";
}

// "2.000 s (88200 frames)" of frames at rate.
std::string Length(int64_t frames, int rate) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f s (%lld frames)", rate > 0 ? static_cast<double>(frames) / rate : 0.0,
                  static_cast<long long>(frames));
    return text;
}

// One line on stderr for a source that ends before its headers say it should.
void WarnIfCutShort(const Source& source, LxAudioImporter& importer) {
    if (!importer.IsCutShort()) return;
    const int rate = importer.GetAudioSampleRate();
    const int64_t promised = importer.GetPromisedFrames();
    const int64_t found = importer.GetFoundFrames();
    const std::string header = source.kind == SourceKind::kWav ? "its header promises " : "its last page promises ";
    std::string line = "lxaudio: warning: " + source.Quoted() + " is cut short: ";
    if (promised >= 0) {
        line += header + Length(promised, rate) + ", the file holds " + Length(found, rate);
    } else {
        line += "it ends without its last page; the file holds " + Length(found, rate);
    }
    std::fprintf(stderr, "%s; imported what it holds\n", line.c_str());
}

// Imports one file as a new clip and returns its ID; why says what went wrong
// when it returns less than 1 (-2: cancelled).
int ImportOne(const LxCliGlobal& global, LxAudioController& controller, const Source& source, bool denoise,
              std::string& why) {
    std::unique_ptr<LxAudioImporter> importer;
    if (source.kind == SourceKind::kWav) {
        importer = controller.GetWAVImporter(nullptr, nullptr, denoise);
    } else if (denoise) {
        // The controller's Vorbis factory never denoises; the importer itself can.
        importer = std::make_unique<LxNvVorbisImporter>(controller, nullptr, nullptr, true);
    } else {
        importer = controller.GetNvVorbisImporter(nullptr, nullptr);
    }
    size_t mark = global.log->Mark();
    const int64_t refusals = controller.GetAudioFile() ? controller.GetAudioFile()->GetRoomRefusals() : 0;
    int id = -1;
    {
        LxCliProgressBar bar("import " + source.Name(), global.quiet);
        importer->SetProgressCallBack(&bar);
        id = importer->Import(LxFile(LxString(source.path)));
        importer->SetProgressCallBack(nullptr);
    }
    if (id >= 1) {
        WarnIfCutShort(source, *importer);
    } else if (id != -2 && controller.GetAudioFile() && controller.GetAudioFile()->GetRoomRefusals() != refusals) {
        why = "it does not fit in the project's store (2 GiB of raw audio at most); compress and compact the "
              "project to import more";
    } else if (id != -2) {
        why = global.log->Summary(mark);
        if (why.empty()) why = "the file holds no audio that can be read";
    }
    return id;
}

// The failure of an import of sources, nothing of which was imported: one
// file named as usual, several listed with their reasons.
LxCliFailure ImportFailure(const std::vector<Source>& sources, const std::vector<std::pair<size_t, std::string>>& failed) {
    if (sources.size() == 1) {
        const Source& only = sources[0];
        return only.IsStandardInput() ? LxCliFailure("cannot import standard input", "", failed[0].second)
                                      : LxCliFailure("cannot import", only.file, failed[0].second);
    }
    std::string list;
    for (const auto& [index, why] : failed) list += (list.empty() ? "" : "; ") + sources[index].Quoted() + ": " + why;
    return LxCliFailure("cannot import " + std::to_string(failed.size()) + " of " + std::to_string(sources.size()) +
                            " files, so none was imported",
                        "", list);
}

std::string Describe(LxAudioController& controller, int clipID) {
    auto clip = controller.GetClip(clipID);
    return "clip " + std::to_string(clipID) + ", " + LxCliUnits::Seconds(clip->WorthInFrames()) + ", " +
           ChannelsName(clip->GetMaximumNumberOfChannels());
}

// One entry of `mix`: CLIP@OFFSET[:WEIGHT][:fadein|:fadeout].
struct MixEntry {
    int clipID = -1;
    int offsetMS = 0;
    float weight = 1.0f;
    LxAudioEffectEnum fade = LxAudioEffectNone;
};

MixEntry ParseMixEntry(const std::string& text) {
    MixEntry entry;
    size_t at = text.find('@');
    if (at == std::string::npos)
        throw LxCliFailure("bad mix entry", text, "expected CLIP@OFFSET[:WEIGHT][:fadein|:fadeout]",
                           LxCliFailure::kExitUsage);
    entry.clipID = LxCliUnits::ParseInt(text.substr(0, at), "clip ID");
    std::vector<std::string> parts;
    std::stringstream rest(text.substr(at + 1));
    std::string part;
    while (std::getline(rest, part, ':')) parts.push_back(part);
    if (parts.empty() || parts.size() > 3)
        throw LxCliFailure("bad mix entry", text, "expected CLIP@OFFSET[:WEIGHT][:fadein|:fadeout]",
                           LxCliFailure::kExitUsage);
    entry.offsetMS = LxCliUnits::ParseMilliseconds(parts[0]);
    for (size_t i = 1; i < parts.size(); ++i) {
        if (parts[i] == "fadein") {
            entry.fade = LxAudioEffectFadeIn;
        } else if (parts[i] == "fadeout") {
            entry.fade = LxAudioEffectFadeOut;
        } else if (i == 1) {
            entry.weight = LxCliUnits::ParseGain(parts[i]);
        } else {
            throw LxCliFailure("bad mix entry", text, "expected fadein or fadeout after the weight",
                               LxCliFailure::kExitUsage);
        }
    }
    return entry;
}

std::unique_ptr<LxWAVExporter> MakeExporter(LxAudioController& controller, int channels, int rate, int bits,
                                            const std::string& output) {
    if (channels != 1 && channels != 2)
        throw LxCliFailure("cannot export to", output, "channels must be 1 or 2", LxCliFailure::kExitUsage);
    auto exporter = controller.GetWAVExporter(channels, rate, bits, nullptr, nullptr);
    if (!exporter->IsFormatSupported())
        throw LxCliFailure("cannot export to", output,
                           "unsupported format (rate 1000..768000 Hz, 16 or 24 bits, or 32 for float)",
                           LxCliFailure::kExitUsage);
    return exporter;
}

// Page thumbnails describe the stored audio; a clip plays its ranges with
// their own gains (gain and normalize edits). Scale every point by the gain of
// the range that holds its first frame, so that the picture shows the levels
// one hears.
void ApplyRangeGains(const LxAudioClip& clip, std::vector<uint32_t>& points) {
    const std::vector<LxPageRange>& ranges = clip.GetPageRanges();
    size_t range = 0;
    long long rangeEnd = ranges.empty() ? 0 : ranges[0].WorthInFrames();
    for (size_t i = 0; i < points.size(); ++i) {
        const long long frame = static_cast<long long>(i) * kLxThumbnailFrames;
        while (range + 1 < ranges.size() && frame >= rangeEnd) rangeEnd += ranges[++range].WorthInFrames();
        if (range >= ranges.size()) break;
        const float gain = ranges[range].effect.gain;
        if (gain == 1.0f) continue;
        auto scale = [gain](int sample) {
            float x = std::clamp(static_cast<float>(sample) * gain, -32768.0f, 32767.0f);
            return static_cast<uint32_t>(static_cast<uint16_t>(static_cast<int16_t>(x)));
        };
        const uint32_t point = points[i];
        points[i] = scale(static_cast<int16_t>(point & 0xFFFF)) | scale(static_cast<int16_t>(point >> 16)) << 16;
    }
}

}  // namespace

namespace LxCliCommands {

void WriteWav(const LxCliGlobal& global, LxWAVExporter& exporter, ILxAudioPlaybackClip& clip,
              const std::string& output) {
    // Written as a part file and renamed when whole (see LxCliOutputFile).
    LxCliOutputFile file(output, "cannot export to");
    size_t mark = global.log->Mark();
    int result = LxAudioExporter::kExportFailed;
    {
        LxCliProgressBar bar("export " + FileName(output), global.quiet);
        exporter.SetProgressCallBack(&bar);
        result = exporter.Export(clip, 1, -1, LxFile(LxString(file.PartPath())));
        exporter.SetProgressCallBack(nullptr);
    }
    if (result == LxAudioExporter::kExportCancelled) throw LxCliFailure("export cancelled", output, "");
    if (result != LxAudioExporter::kExportDone) {
        std::string why = global.log->Summary(mark);
        throw LxCliFailure("cannot export to", output, why.empty() ? "writing failed" : why);
    }
    std::string why;
    if (!file.Commit(why)) throw LxCliFailure("cannot export to", output, why);
}

int Import(const LxCliGlobal& global, const std::string& path, const LxCliImportOptions& options) {
    if (options.files.empty())
        throw LxCliFailure("nothing to import", "", "name at least one file", LxCliFailure::kExitUsage);
    std::vector<Source> sources;
    for (const std::string& file : options.files) sources.push_back(Source{file, file, SourceKind::kWav});
    const auto piped = std::count_if(sources.begin(), sources.end(), [](const Source& s) { return s.IsStandardInput(); });
    if (piped > 1)
        throw LxCliFailure("cannot import standard input", "", "it can be named once", LxCliFailure::kExitUsage);
    if (piped == 1 && LxStandardInput::IsTerminal())
        throw LxCliFailure("cannot import standard input", "",
                           "it is a terminal; pipe a WAV or Ogg Vorbis file into it (lxaudio import " + path +
                               " - < talk.wav)",
                           LxCliFailure::kExitUsage);
    LxCliFileSafety::RefuseReadOnly(path);
    for (const Source& source : sources) {
        if (!source.IsStandardInput()) LxCliFileSafety::RefuseInputInside("cannot import", source.file, path);
    }
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kWrite);
    LxAudioController& controller = project.Controller();

    // Every file is examined, then every file imported, so that a failure names
    // all the files that failed; nothing is saved unless all of them import.
    std::vector<std::pair<size_t, std::string>> failed;
    for (size_t i = 0; i < sources.size(); ++i) {
        Source& source = sources[i];
        if (source.IsStandardInput()) {
            // The importers read a file they can seek in: standard input is
            // copied into the controller's private working directory first.
            const LxFile copy = controller.GetTemporaryDirectory().GetChild("standard-input");
            source.path = copy.GetPath().str();
            const int64_t bytes = LxStandardInput::CopyTo(copy);
            if (bytes < 0) {
                failed.emplace_back(i, "it could not be read into '" + source.path + "' (disk full?)");
                continue;
            }
            if (bytes == 0) {
                failed.emplace_back(i, "it was empty");
                continue;
            }
        }
        std::string problem = Examine(controller, source);
        if (!problem.empty()) failed.emplace_back(i, problem);
    }
    if (!failed.empty()) throw ImportFailure(sources, failed);

    std::vector<std::string> lines;
    std::vector<int> ids(sources.size(), -1);
    for (size_t i = 0; i < sources.size(); ++i) {
        std::string why;
        ids[i] = ImportOne(global, controller, sources[i], options.denoise, why);
        if (ids[i] == -2) throw LxCliFailure("import cancelled", sources[i].file, "nothing was saved");
        if (ids[i] < 1) {
            failed.emplace_back(i, why);
            continue;
        }
        lines.push_back("imported " + sources[i].Name() + " as " + Describe(controller, ids[i]));
    }
    if (!failed.empty()) throw ImportFailure(sources, failed);

    if (options.gapDeciSeconds >= 0 && sources.size() > 1) {
        // One clip that plays the files one after the other, with the gap
        // between them: their page ranges, and silence.
        std::unique_ptr<LxAudioClipBase> merged = controller.GetClipBase(-1);
        for (size_t i = 0; i < sources.size(); ++i) {
            merged->AppendClip(*controller.GetClipBase(ids[i]));
            if (options.gapDeciSeconds >= 1 && i + 1 < sources.size()) {
                int added = 0;
                merged->AppendSilenceFrames((options.gapDeciSeconds * kLxFrameRate) / 10, added, true);
            }
        }
        auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_IMPORT);
        clip->AppendClip(*merged);
        int id = clip->WriteToAudioFile();
        if (id < 1) throw LxCliFailure("cannot import", "", "the merged clip could not be stored");
        lines.push_back("merged " + std::to_string(sources.size()) + " files with " +
                        LxCliUnits::Seconds((options.gapDeciSeconds * kLxFrameRate) / 10) + " gaps as " +
                        Describe(controller, id));
    }
    project.Save();
    for (const std::string& line : lines) std::printf("%s\n", line.c_str());
    std::printf("saved %s\n", project.Path().c_str());
    return 0;
}

int Edit(const LxCliGlobal& global, const std::string& path, int clipID, const std::vector<std::string>& ops) {
    LxCliFileSafety::RefuseReadOnly(path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kWrite);
    LxCliEditor editor(project, *global.log, clipID);
    std::vector<std::string> lines = editor.Run(ops);
    project.Save();
    for (const std::string& line : lines) std::printf("%s\n", line.c_str());
    std::printf("result: clip %d\nsaved %s\n", editor.CurrentClipID(), project.Path().c_str());
    return 0;
}

int Mix(const LxCliGlobal& global, const std::string& path, const LxCliMixOptions& options) {
    if (options.entries.empty())
        throw LxCliFailure("nothing to mix", "", "give at least one CLIP@OFFSET", LxCliFailure::kExitUsage);
    LxCliFileSafety::RefuseOutput("cannot mix into", options.output, path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kRead);
    LxAudioController& controller = project.Controller();
    std::vector<LxAudioClipForMerger> entries;
    for (const std::string& text : options.entries) {
        MixEntry entry = ParseMixEntry(text);
        project.RequireClip(entry.clipID);
        if (entry.fade == LxAudioEffectNone) {
            entries.emplace_back(entry.clipID, entry.offsetMS, entry.weight);
        } else {
            // A fading entry fades over its whole length, wherever it starts.
            auto source = controller.GetClip(entry.clipID);
            std::unique_ptr<LxAudioClip> faded = std::make_unique<LxAudioEffectClip>(*source, entry.fade, 0, -1);
            entries.emplace_back(faded, entry.offsetMS, entry.weight);
        }
    }
    const LxMergedOutputChannelsEnum mode = options.channels == 1   ? LxMergedOutputMono
                                            : options.channels == 2 ? LxMergedOutputStereo
                                                                    : LxMergedOutputChoose;
    size_t mark = global.log->Mark();
    LxMultiAudioClipMergedStream stream(&controller, entries, mode);
    if (stream.GetNumberOfClips() != static_cast<int>(entries.size()) || global.log->CountSince(mark) > 0)
        throw LxCliFailure("cannot mix into", options.output, global.log->Summary(mark));
    const int channels = stream.GetNumberOfOutputChannels();
    auto exporter = MakeExporter(controller, channels, options.rate, options.bits, options.output);
    WriteWav(global, *exporter, stream, options.output);
    std::printf("mixed %zu clips into %s: %s, %s, %d Hz, %d-bit\n", entries.size(), options.output.c_str(),
                LxCliUnits::Seconds(stream.WorthInFrames()).c_str(), ChannelsName(channels).c_str(), options.rate,
                options.bits);
    return 0;
}

int Export(const LxCliGlobal& global, const std::string& path, const LxCliExportOptions& options) {
    LxCliFileSafety::RefuseOutput("cannot export to", options.output, path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kRead);
    auto clip = project.LoadClip(options.clipID);
    const int channels = options.channels > 0 ? options.channels : clip->GetMaximumNumberOfChannels();
    auto exporter = MakeExporter(project.Controller(), channels, options.rate, options.bits, options.output);
    WriteWav(global, *exporter, *clip, options.output);
    std::printf("exported clip %d to %s: %lld frames, %s, %d Hz, %d-bit\n", options.clipID, options.output.c_str(),
                static_cast<long long>(exporter->GetFramesWritten()), ChannelsName(channels).c_str(), options.rate,
                options.bits);
    return 0;
}

int Waveform(const LxCliGlobal& global, const std::string& path, const LxCliWaveformOptions& options) {
    if (options.width < 16 || options.width > 20000 || options.height < 16 || options.height > 4000)
        throw LxCliFailure("bad picture size", std::to_string(options.width) + "x" + std::to_string(options.height),
                           "width 16..20000, height 16..4000", LxCliFailure::kExitUsage);
    LxCliFileSafety::RefuseOutput("cannot write picture", options.output, path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kRead);
    auto clip = project.LoadClip(options.clipID);
    clip->LoadThumbnail();
    const int count = clip->GetNumberOfFramesInThumbnail();
    std::vector<uint32_t> points(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) points[static_cast<size_t>(i)] = static_cast<uint32_t>(clip->GetNthFrameInThumbnail(i));
    ApplyRangeGains(*clip, points);
    LxCliWaveformImage image(options.width, options.height);
    image.Draw(points);
    LxCliOutputFile file(options.output, "cannot write picture");
    std::string why;
    if (!image.WritePng(file.PartPath(), why) || !file.Commit(why))
        throw LxCliFailure("cannot write picture", options.output, why);
    std::printf("drew clip %d (%s, %d points) into %s (%d x %d)\n", options.clipID,
                LxCliUnits::Seconds(clip->WorthInFrames()).c_str(), count, options.output.c_str(), options.width,
                options.height);
    return 0;
}

}  // namespace LxCliCommands
