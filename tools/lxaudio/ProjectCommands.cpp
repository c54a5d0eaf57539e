// Commands on a project as a whole: new, info, salvage, compress, compact.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <list>
#include <map>
#include <set>
#include "LxAudioCore.h"
#include "LxCliAssertLog.h"
#include "LxCliCommands.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliFileSafety.h"
#include "LxCliJsonWriter.h"
#include "LxCliProgressBar.h"
#include "LxCliProject.h"
#include "LxCliRecordings.h"
#include "LxCliUnits.h"

namespace fs = std::filesystem;

namespace {

std::string Bytes(long long bytes) {
    char text[64];
    if (bytes < 1024) {
        std::snprintf(text, sizeof text, "%lld B", bytes);
    } else if (bytes < 1024 * 1024) {
        std::snprintf(text, sizeof text, "%.1f KiB", bytes / 1024.0);
    } else {
        std::snprintf(text, sizeof text, "%.1f MiB", bytes / (1024.0 * 1024.0));
    }
    return text;
}

long long SizeOnDisk(const std::string& path) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        auto size = fs::file_size(path, error);
        return error ? 0 : static_cast<long long>(size);
    }
    long long total = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
        auto size = entry.file_size(error);
        if (!error) total += static_cast<long long>(size);
    }
    return total;
}

struct PageCounts {
    int total = 0;
    int silent = 0;
    int raw = 0;
    int compressed = 0;
    long long pcmBytesCompressed = 0;  // decoded size of the compressed pages
    long long encodedBytes = 0;        // their Vorbis data
    double CompressedShare() const { return raw + compressed > 0 ? double(compressed) / (raw + compressed) : 0.0; }
};

PageCounts CountPages(LxAudioFile& store, int pcmMemberBytes) {
    PageCounts counts;
    LxPCMData record;
    for (int page = 0; page + kLxPageRecordBytes <= pcmMemberBytes; page += kLxPageRecordBytes) {
        if (!store.ReadPageHeader(page, record)) continue;
        ++counts.total;
        if (record.codec == kLxPageCodecSilent) ++counts.silent;
        if (record.codec == kLxPageCodecRaw) ++counts.raw;
        if (record.codec == kLxPageCodecVorbis) {
            ++counts.compressed;
            counts.pcmBytesCompressed += record.pcmBytes;
            counts.encodedBytes += record.dataRange.Size();
        }
    }
    return counts;
}

void Saved(const LxCliProject& project) { std::printf("saved %s\n", project.Path().c_str()); }

}  // namespace

namespace LxCliCommands {

int New(const LxCliGlobal& global, const std::string& path) {
    LxCliProject project(*global.log);
    project.Create(path, global.directory ? LxCliProject::Form::kDirectory : LxCliProject::Form::kFile);
    std::printf("created %s project %s\n", global.directory ? "directory" : "file", path.c_str());
    return 0;
}

int Info(const LxCliGlobal& global, const std::string& path, bool json) {
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kRead);
    LxAudioController& controller = project.Controller();
    LxAudioFile& store = *controller.GetAudioFile();
    int sizes[5] = {0, 0, 0, 0, 0};
    store.GetMemberSizes(sizes);
    static const char* const kMembers[5] = {"raw", "enc", "pcm", "clip", "map"};
    PageCounts pages = CountPages(store, sizes[2]);
    // Clips the saved clip table lists, also those a damaged "map.lxa" lost.
    const LxAudioDamageReport& damage = project.Damage();
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    for (const auto& entry : damage.clipTable) ids.push_back(entry.first);
    ids.sort();
    ids.unique();
    // In a damaged project, a clip the check did not find intact is not read.
    auto whyDamaged = [&damage](int id) {
        if (!damage.IsDamaged() || std::count(damage.intactClips.begin(), damage.intactClips.end(), id) == 1)
            return std::string();
        auto it = damage.damagedClips.find(id);
        return it == damage.damagedClips.end() ? std::string("not among the project's intact clips") : it->second;
    };
    const int exitCode = damage.IsDamaged() ? LxCliFailure::kExitDamaged : 0;
    const bool isDirectory = project.GetForm() == LxCliProject::Form::kDirectory;

    if (json) {
        LxCliJsonWriter out;
        out.BeginObject();
        out.Key("project").String(path);
        out.Key("form").String(isDirectory ? "directory" : "file");
        out.Key("bytesOnDisk").Int(SizeOnDisk(path));
        out.Key("store").BeginObject();
        for (int i = 0; i < 5; ++i) out.Key(kMembers[i]).Int(sizes[i]);
        out.EndObject();
        out.Key("pages").BeginObject();
        out.Key("total").Int(pages.total);
        out.Key("silent").Int(pages.silent);
        out.Key("raw").Int(pages.raw);
        out.Key("compressed").Int(pages.compressed);
        out.Key("compressedShare").Double(pages.CompressedShare(), 4);
        out.Key("pcmBytesOfCompressedPages").Int(pages.pcmBytesCompressed);
        out.Key("encodedBytes").Int(pages.encodedBytes);
        out.EndObject();
        out.Key("integrity").BeginObject();
        out.Key("verified").Bool(damage.verified);
        out.Key("damaged").Bool(damage.IsDamaged());
        out.Key("findings").BeginArray();
        for (const LxAudioDamage& finding : damage.damage) out.String(LxAudioDamageReport::Describe(finding));
        out.EndArray();
        out.EndObject();
        out.Key("clips").BeginArray();
        for (int id : ids) {
            out.BeginObject();
            out.Key("id").Int(id);
            const std::string why = whyDamaged(id);
            if (!why.empty()) {
                // Nothing of a damaged clip is read: its record may be what is damaged.
                out.Key("damaged").String(why);
                out.EndObject();
                continue;
            }
            auto clip = controller.GetClip(id);
            out.Key("frames").Int(clip->WorthInFrames());
            out.Key("seconds").Double(clip->WorthInFrames() / double{kLxFrameRate}, 3);
            out.Key("channels").Int(clip->GetMaximumNumberOfChannels());
            out.Key("silent").Bool(clip->IsSilent());
            out.Key("ranges").BeginArray();
            for (const LxPageRange& range : clip->GetPageRanges()) {
                out.BeginObject();
                out.Key("startPage").Int(range.startPage);
                out.Key("startOffset").Int(range.startOffset);
                out.Key("endPage").Int(range.endPage);
                out.Key("endOffset").Int(range.endOffset);
                out.Key("frames").Int(range.WorthInFrames());
                out.Key("gain").Double(range.effect.gain, 6);
                out.EndObject();
            }
            out.EndArray();
            out.EndObject();
        }
        out.EndArray();
        // Recordings that interrupted commands left beside the project (see recover).
        out.Key("interruptedRecordings").BeginArray();
        for (const LxAudioLeftover& leftover : project.Interrupted()) {
            for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
                if (!LxCliRecordings::HasAudio(recording) && recording.readable) continue;
                out.BeginObject();
                out.Key("startTimeMS").Int(recording.startTimeMS);
                out.Key("started").String(LxCliRecordings::LocalTime(recording.startTimeMS));
                out.Key("frames").Int(recording.frames);
                out.Key("seconds").Double(static_cast<double>(recording.frames) / double{kLxFrameRate}, 3);
                out.Key("channels").Int(recording.channels);
                out.Key("ended").Bool(recording.ended);
                out.Key("readable").Bool(recording.readable);
                out.EndObject();
            }
        }
        out.EndArray();
        out.EndObject();
        std::fputs(out.Text().c_str(), stdout);
        return exitCode;
    }

    std::printf("project  %s (%s, %s on disk)\n", path.c_str(), isDirectory ? "directory" : "file",
                Bytes(SizeOnDisk(path)).c_str());
    std::printf("store   ");
    for (int i = 0; i < 5; ++i) std::printf(" %s %s%s", kMembers[i], Bytes(sizes[i]).c_str(), i < 4 ? "," : "\n");
    std::printf("pages    %d: %d reserved silent, %d raw, %d compressed (%.0f%% compressed", pages.total,
                pages.silent, pages.raw, pages.compressed, 100.0 * pages.CompressedShare());
    if (pages.encodedBytes > 0)
        std::printf(", %.1f:1 on compressed pages", double(pages.pcmBytesCompressed) / double(pages.encodedBytes));
    std::printf(")\n");
    std::printf("clips    %zu\n", ids.size());
    if (!ids.empty())
        std::printf("  %5s %10s %11s %3s %6s  %s\n", "id", "frames", "length", "ch", "ranges", "silent");
    for (int id : ids) {
        const std::string why = whyDamaged(id);
        if (!why.empty()) {
            std::printf("  %5d damaged: %s\n", id, why.c_str());
            continue;
        }
        auto clip = controller.GetClip(id);
        std::printf("  %5d %10d %11s %3d %6zu  %s\n", id, clip->WorthInFrames(), LxCliUnits::Seconds(clip->WorthInFrames()).c_str(),
                    clip->GetMaximumNumberOfChannels(), clip->GetPageRanges().size(),
                    clip->IsSilent() ? "yes" : "no");
    }
    std::printf("integrity %s\n", damage.IsDamaged() ? "DAMAGED"
                                   : damage.verified ? "verified: every clip is as it was saved"
                                                     : "not verified (saved without an integrity record); its structure is sound");
    for (const LxAudioDamage& finding : damage.damage)
        std::printf("  %s\n", LxAudioDamageReport::Describe(finding).c_str());
    if (damage.IsDamaged())
        std::printf("  'lxaudio salvage %s NEW' copies the intact clips into a new project\n", path.c_str());
    if (!project.Interrupted().empty()) {
        std::printf("interrupted recordings, not in the project ('lxaudio recover %s' adds them)\n", path.c_str());
        std::printf("  %-19s %11s  %s\n", "recorded", "length", "state");
        for (const LxAudioLeftover& leftover : project.Interrupted()) {
            for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
                if (!LxCliRecordings::HasAudio(recording) && recording.readable) continue;
                std::printf("  %-19s %11s  %s\n", LxCliRecordings::LocalTime(recording.startTimeMS).c_str(),
                            LxCliUnits::Seconds(recording.frames).c_str(), LxCliRecordings::State(recording).c_str());
            }
        }
    }
    return exitCode;
}

int Salvage(const LxCliGlobal& global, const std::string& path, const std::string& output, bool withSilence) {
    LxCliFileSafety::RefuseOutput("cannot salvage into", output, path);
    LxCliProject source(*global.log);
    source.Open(path, LxCliProject::Access::kRead, /*announce*/ false);
    const LxAudioDamageReport& damage = source.Damage();
    LxCliProject target(*global.log);
    target.Create(output, global.directory || source.GetForm() == LxCliProject::Form::kDirectory
                              ? LxCliProject::Form::kDirectory
                              : LxCliProject::Form::kFile);
    std::map<int, int> idMap;
    std::set<int> patched;
    const int copied = source.Controller().SalvageInto(target.Controller(), damage, withSilence, idMap, patched);
    target.Save();
    for (const auto& entry : damage.clipTable) {
        const int id = entry.first;
        auto it = idMap.find(id);
        auto why = damage.damagedClips.find(id);
        if (it == idMap.end()) {
            std::printf("clip %d left out: %s\n", id, why != damage.damagedClips.end() ? why->second.c_str() : "cannot be read");
        } else if (patched.count(id) != 0) {
            std::printf("clip %d -> %d, with silence where it was damaged (%s)\n", id, it->second, why->second.c_str());
        } else {
            std::printf("clip %d -> %d\n", id, it->second);
        }
    }
    std::printf("salvaged %d of %zu clips from %s into %s%s\n", copied, damage.clipTable.size(), path.c_str(),
                output.c_str(),
                copied < static_cast<int>(damage.clipTable.size()) && !withSilence
                    ? " (--with-silence also copies damaged clips whose own record is intact)"
                    : "");
    return 0;
}

int Compress(const LxCliGlobal& global, const std::string& path, int jobs) {
    LxCliFileSafety::RefuseReadOnly(path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kWrite);
    LxAudioController& controller = project.Controller();
    int before[5] = {0, 0, 0, 0, 0};
    controller.GetAudioFile()->GetMemberSizes(before);
    int compressed = 0;
    {
        LxCliProgressBar bar("compress", global.quiet);
        // Any number of jobs stores the same bytes; 0 takes one per core.
        compressed = controller.GetAudioFile()->CompressAllPagesInParallel(jobs, &bar);
    }
    project.Save();
    int after[5] = {0, 0, 0, 0, 0};
    controller.GetAudioFile()->GetMemberSizes(after);
    std::printf("compressed %d page%s (audio data %s -> %s)%s\n", compressed, compressed == 1 ? "" : "s",
                Bytes(static_cast<long long>(before[0]) + before[1]).c_str(),
                Bytes(static_cast<long long>(after[0]) + after[1]).c_str(),
                controller.HasPagesToCompress() ? "; interrupted, run again to finish" : "");
    Saved(project);
    return 0;
}

int Compact(const LxCliGlobal& global, const std::string& path, const std::vector<int>& keep) {
    LxCliFileSafety::RefuseReadOnly(path);
    LxCliProject project(*global.log);
    project.Open(path, LxCliProject::Access::kWrite);
    LxAudioController& controller = project.Controller();
    std::list<int> all;
    controller.GetListOfClipIDs(all);
    std::list<int> ids;
    if (keep.empty()) {
        ids = all;
    } else {
        std::set<int> seen;
        for (int id : keep) {
            if (!project.HasClip(id)) throw LxCliFailure("no clip " + std::to_string(id) + " in project", path, "");
            if (seen.insert(id).second) ids.push_back(id);
        }
    }
    const std::list<int> old = ids;
    int before[5] = {0, 0, 0, 0, 0};
    controller.GetAudioFile()->GetMemberSizes(before);
    size_t mark = global.log->Mark();
    bool changed = false;
    {
        LxCliProgressBar bar("compact", global.quiet);
        changed = controller.Compact(ids, &bar);
    }
    if (ids.size() != old.size() || global.log->CountSince(mark) > 0)
        throw LxCliFailure("cannot compact project", path, global.log->Summary(mark));
    if (changed) project.Save();
    int after[5] = {0, 0, 0, 0, 0};
    controller.GetAudioFile()->GetMemberSizes(after);
    long long total0 = 0, total1 = 0;
    for (int i = 0; i < 5; ++i) {
        total0 += before[i];
        total1 += after[i];
    }
    if (!changed) {
        // The engine leaves the store alone when the kept clips still reach every page.
        std::printf("nothing to compact: the kept clips use every page; all %zu clips kept (store %s)\n",
                    all.size(), Bytes(total1).c_str());
        return 0;
    }
    auto newID = ids.begin();
    for (int id : old) std::printf("clip %d -> clip %d\n", id, *newID++);
    size_t dropped = all.size() - old.size();
    std::printf("compacted; %zu clip%s dropped; store %s -> %s\n", dropped, dropped == 1 ? "" : "s",
                Bytes(total0).c_str(), Bytes(total1).c_str());
    Saved(project);
    return 0;
}

}  // namespace LxCliCommands
