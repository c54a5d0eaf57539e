#pragma once
// One input of a merged stream: a stored clip (by ID) or a clip the entry owns,
// where it starts on the merged timeline, and its weighted sections. Copies
// copy an owned clip deeply (an effect clip stays an effect clip).
#include <memory>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioClipSectionForMerger.h"
#include "LxAudioCoreExport.h"

class LXAUDIOCORE_API LxAudioClipForMerger {
public:
    LxAudioClipForMerger(int clipID, const int& offsetMS, float weight);
    LxAudioClipForMerger(int clipID, const int& offsetMS, const std::vector<LxAudioClipSectionForMerger>& sections);
    // Takes the clip over: the caller's pointer becomes null. The clip ID is -1.
    LxAudioClipForMerger(std::unique_ptr<LxAudioClip>& clip, const int& offsetMS, float weight);
    LxAudioClipForMerger(const LxAudioClipForMerger& other);
    LxAudioClipForMerger& operator=(const LxAudioClipForMerger& other);
    ~LxAudioClipForMerger();

    int GetClipID() const { return clipID; }
    int GetOffsetMS() const { return offsetMS; }
    const std::vector<LxAudioClipSectionForMerger>& GetSections() const { return sections; }
    // Hands the owned clip over (null when there is none).
    std::unique_ptr<LxAudioClip> TakeClip() { return std::move(clip); }
    // Folds the sections' weights into the gains of the clip's ranges.
    void ApplySectionsTo(LxAudioClip& target) const;

private:
    static std::unique_ptr<LxAudioClip> DeepCopy(const LxAudioClip* clip);

    int clipID;
    std::unique_ptr<LxAudioClip> clip;
    int offsetMS;
    std::vector<LxAudioClipSectionForMerger> sections;
};
