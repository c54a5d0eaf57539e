#pragma once
// Shared by the fuzz targets: silence the engine's assertion reports (damaged
// input raises many, by design) and walk everything a loaded store holds, the
// way a host would after opening a project.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <set>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioController.h"
#include "LxAudioFile.h"
#include "LxPublic/LxAssert.h"

namespace fuzz {

// LX_FUZZ_VERBOSE=1 keeps the reports and prints what each input led to.
inline bool Verbose() {
    static const bool verbose = std::getenv("LX_FUZZ_VERBOSE") != nullptr;
    return verbose;
}

inline void QuietAsserts() {
    static const bool installed = [] {
        if (!Verbose()) LxSetAssertHandler([](const char*, const char*, int) {});
        return true;
    }();
    (void)installed;
}

inline void Note(const char* what, int value) {
    if (Verbose()) std::printf("  %s: %d\n", what, value);
}

// Reads a clip to its end, up to a budget: a damaged record can legitimately
// describe hours of audio by repeating pages, which is slow, not wrong.
inline void PlayClip(ILxAudioPlaybackClip& clip, int channels, int64_t budgetBytes = 64 << 20) {
    std::vector<unsigned char> buffer(17640);
    clip.SeekToBeginning();
    int64_t total = 0;
    int emptyReads = 0;
    while (total < budgetBytes && emptyReads < 2) {
        int got = 0;
        clip.GetNextPCMData(channels, buffer.data(), static_cast<int>(buffer.size()), got, nullptr, false);
        emptyReads = got > 0 ? 0 : emptyReads + 1;
        total += got > 0 ? got : 0;
    }
}

// Every page (header, data as mono and stereo, thumbnail) and every clip
// (played, thumbnail, best volume).
inline void ExerciseStore(LxAudioController& controller) {
    LxAudioFile& store = *controller.GetAudioFile();
    int sizes[5] = {};
    store.GetMemberSizes(sizes);
    std::vector<unsigned char> buffer(352800);
    for (int page = 0; page + 36 <= sizes[2] && page < (1 << 20); page += 36) {
        LxPCMData record;
        if (!store.ReadPageHeader(page, record)) continue;
        int got = 0;
        for (int channels : {1, 2}) store.ReadPageData(record, channels, buffer.data(), static_cast<int>(buffer.size()), got);
        store.ReadPageThumbnail(page, buffer.data(), static_cast<int>(buffer.size()), got);
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    Note("clips", static_cast<int>(ids.size()));
    int clips = 0;
    for (int id : ids) {
        if (++clips > 64) break;
        auto clip = controller.GetClip(id);
        PlayClip(*clip, 2);
        clip->LoadThumbnail();
        clip->GetBestVolume(0, clip->WorthInFrames());
    }
}

// A verified load of the same input into another controller, and salvage of
// what it calls intact into a third.
template <typename Load>
void VerifiedLoadAndSalvage(Load load) {
    LxAudioController checked, salvaged;
    LxAudioDamageReport report;
    Note("verified", load(checked, report));
    Note("damaged", report.IsDamaged());
    std::map<int, int> idMap;
    std::set<int> patched;
    checked.SalvageInto(salvaged, report, true, idMap, patched);
    ExerciseStore(salvaged);
}

}  // namespace fuzz
