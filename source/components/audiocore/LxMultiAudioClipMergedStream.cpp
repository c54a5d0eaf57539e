#include "LxMultiAudioClipMergedStream.h"

#include <algorithm>
#include <cstring>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioController.h"
#include "LxAudioEffectClip.h"
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioClip";

LxMultiAudioClipMergedStream::LxMultiAudioClipMergedStream(LxAudioController* controller,
                                                           std::vector<LxAudioClipForMerger>& inputs,
                                                           LxMergedOutputChannelsEnum outputMode)
    : mode(outputMode) {
    if (controller == nullptr) {
        LxReportAt("", LxReportSites::kMergeNoController);
        return;
    }
    int longestEnd = 0;
    for (LxAudioClipForMerger& input : inputs) {
        std::unique_ptr<LxAudioClip> clip;
        if (input.GetClipID() == -1) {
            clip = input.TakeClip();
            if (!clip) {
                LxReportAt("", LxReportSites::kMergeEntryWithoutClip);
                DeleteClips();
                break;
            }
        } else {
            clip = controller->GetClip(input.GetClipID());
        }
        input.ApplySectionsTo(*clip);
        int offsetFrames = static_cast<int>(static_cast<float>(input.GetOffsetMS()) * 0.001f * kLxFrameRateF + 0.5f);
        longestEnd = std::max(longestEnd, offsetFrames + clip->WorthInFrames());
        entries[clip.get()] = EntryData{offsetFrames};
        clips.push_back(std::move(clip));
    }
    if (inputs.size() != clips.size()) {
        LxReportAt("", LxReportSites::kMergeClipsMissing);
        DeleteClips();
    }
    // Every clip is padded to the longest track, so that all of them run out together.
    for (auto& clip : clips) {
        int offsetFrames = entries[clip.get()].offsetFrames;
        int length = clip->WorthInFrames();
        auto* effectClip = dynamic_cast<LxAudioEffectClip*>(clip.get());
        int lengthMS = static_cast<int>(clip->WorthInSeconds() * 1000.0f + 0.5f);
        if (offsetFrames > 0) {
            int added = 0;
            clip->PrependSilenceFrames(offsetFrames, added, false);
            if (effectClip) {
                effectClip->SetEffectStartTimeMS(static_cast<int>(offsetFrames / kLxFrameRateF * 1000.0f + 0.5f));
                effectClip->SetEffectDurationMS(lengthMS);
            }
            if (added < offsetFrames) LxReportAt("", LxReportSites::kMergeOffsetShort);
        }
        if (offsetFrames + length < longestEnd) {
            int wanted = longestEnd - (offsetFrames + length);
            int added = 0;
            clip->AppendSilenceFrames(wanted, added, false);
            if (effectClip) effectClip->SetEffectDurationMS(lengthMS);
            if (added < wanted) LxReportAt("", LxReportSites::kMergePaddingShort);
        }
    }
    for (auto& clip : clips) clip->SeekToBeginning();
    CalculateNumOutputChannels();
}

LxMultiAudioClipMergedStream::~LxMultiAudioClipMergedStream() { DeleteClips(); }

void LxMultiAudioClipMergedStream::DeleteClips() {
    entries.clear();
    clips.clear();
}

void LxMultiAudioClipMergedStream::CalculateNumOutputChannels() {
    if (mode == LxMergedOutputMono || mode == LxMergedOutputStereo) return;
    // A choice among clips always ends in stereo as soon as there is a clip,
    // mono ones included.
    int most = 0;
    for (auto& clip : clips) most = std::max(most, clip->GetMaximumNumberOfChannels());
    mode = most >= 1 ? LxMergedOutputStereo : LxMergedOutputMono;
}

int LxMultiAudioClipMergedStream::GetNumberOfOutputChannels() const {
    if (mode == LxMergedOutputStereo) return 2;
    if (mode == LxMergedOutputInvalid) LxReportAt("", LxReportSites::kMergeInvalidMode);
    return 1;
}

int LxMultiAudioClipMergedStream::WorthInBytes() const {
    return clips.empty() || !clips.front() ? 0 : clips.front()->WorthInBytes();
}

int LxMultiAudioClipMergedStream::WorthInFrames() const {
    return clips.empty() || !clips.front() ? 0 : clips.front()->WorthInFrames();
}

float LxMultiAudioClipMergedStream::WorthInSeconds() const { return static_cast<float>(WorthInFrames()) / kLxFrameRateF; }

int LxMultiAudioClipMergedStream::WorthInDeciSeconds() const {
    return static_cast<int>((WorthInSeconds() + 0.05f) * 10.0f);
}

void LxMultiAudioClipMergedStream::SetPortionToBePlayedBack(int startFrame, int endFrame) {
    for (auto& clip : clips) clip->SetPortionToBePlayedBack(startFrame, endFrame);
}

void LxMultiAudioClipMergedStream::SeekToBeginning() {
    for (auto& clip : clips) clip->SeekToBeginning();
}

void LxMultiAudioClipMergedStream::GetNextPCMData(int channels, unsigned char* buffer, int bufferBytes, int& bytesOut,
                                                  LxPCMData* metaData, bool accumulate) {
    if (metaData != nullptr || accumulate) {
        LxReportAt("LxMultiAudioClipMergedStream::GetNextPCMData, outPCMMetaData || accumulate", LxReportSites::kMergeMetaDataOrAccumulate);
        return;
    }
    if (channels != GetNumberOfOutputChannels()) {
        LxAssertFailed("LxMultiAudioClipMergedStream::GetNextPCMData, expectedOutChannelsForMergedClip != expectedOutChannels", kSourceFile, __LINE__);
        return;
    }
    if (buffer == nullptr || bufferBytes <= 0) return;
    std::memset(buffer, 0, static_cast<size_t>(bufferBytes));
    bytesOut = 0;
    int previousTotal = 0;
    for (auto& clip : clips) {
        if (entries.find(clip.get()) == entries.end()) {
            LxReportAt("", LxReportSites::kMergeUnknownClip);
            continue;
        }
        int total = 0, remaining = bufferBytes, got = 0;
        do {
            clip->GetNextPCMData(channels, buffer + total, remaining, got, nullptr, true);
            if (got < 1) break;
            total += got;
            remaining -= got;
        } while (remaining >= 1);
        if (previousTotal != 0 && total != previousTotal) LxReportAt("", LxReportSites::kMergeClipsOfUnequalLength);
        if (total != 0) previousTotal = total;
        bytesOut = std::max(bytesOut, total);
    }
}
