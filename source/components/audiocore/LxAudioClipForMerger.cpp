#include "LxAudioClipForMerger.h"

#include "LxAudioConstants.h"
#include "LxAudioEditableClip.h"
#include "LxAudioEffectClip.h"
#include "LxAudioVolumeEffect.h"

namespace {
int MsToFrames(int ms) { return static_cast<int>(static_cast<float>(ms) * 0.001f * kLxFrameRateF + 0.5f); }
}  // namespace

LxAudioClipForMerger::LxAudioClipForMerger(int id, const int& offset, float weight)
    : clipID(id), offsetMS(offset), sections{LxAudioClipSectionForMerger(0, -1, weight)} {}

LxAudioClipForMerger::LxAudioClipForMerger(int id, const int& offset,
                                           const std::vector<LxAudioClipSectionForMerger>& parts)
    : clipID(id), offsetMS(offset), sections(parts) {}

LxAudioClipForMerger::LxAudioClipForMerger(std::unique_ptr<LxAudioClip>& owned, const int& offset, float weight)
    : clipID(-1), clip(std::move(owned)), offsetMS(offset), sections{LxAudioClipSectionForMerger(0, -1, weight)} {}

LxAudioClipForMerger::LxAudioClipForMerger(const LxAudioClipForMerger& other)
    : clipID(other.clipID), clip(DeepCopy(other.clip.get())), offsetMS(other.offsetMS), sections(other.sections) {}

LxAudioClipForMerger& LxAudioClipForMerger::operator=(const LxAudioClipForMerger& other) {
    if (this != &other) {
        clipID = other.clipID;
        clip = DeepCopy(other.clip.get());
        offsetMS = other.offsetMS;
        sections = other.sections;
    }
    return *this;
}

LxAudioClipForMerger::~LxAudioClipForMerger() = default;

std::unique_ptr<LxAudioClip> LxAudioClipForMerger::DeepCopy(const LxAudioClip* source) {
    if (source == nullptr) return nullptr;
    if (const auto* effectClip = dynamic_cast<const LxAudioEffectClip*>(source)) {
        return std::make_unique<LxAudioEffectClip>(*effectClip);
    }
    return std::make_unique<LxAudioClip>(*source);
}

void LxAudioClipForMerger::ApplySectionsTo(LxAudioClip& target) const {
    LxAudioEditableClip editable(target);
    for (const LxAudioClipSectionForMerger& section : sections) {
        int start = MsToFrames(section.StartTimeMS());
        int end = section.EndTimeMS() == -1 ? target.WorthInFrames() : MsToFrames(section.EndTimeMS());
        LxAudioVolumeEffect weight(section.Weight(), 0.0f, 1.0f);
        editable.AddEffect(start, end, weight);
    }
}
