#pragma once
// Several clips played at once as one stream: each placed at its own start on
// a common timeline, weighted by sections, padded with silence to one length,
// and added together sample by sample on every read (no normalisation: weights
// below 1 keep the sum in range). A playback source; it writes nothing to the
// store. It owns its clips.
#include <map>
#include <memory>
#include <vector>
#include "ILxAudioPlaybackClip.h"
#include "LxAudioClip.h"
#include "LxAudioClipForMerger.h"
#include "LxAudioCoreExport.h"
#include "LxMergedOutputChannelsEnum.h"

class LxAudioController;

class LXAUDIOCORE_API LxMultiAudioClipMergedStream : public ILxAudioPlaybackClip {
public:
    LxMultiAudioClipMergedStream(LxAudioController* controller, std::vector<LxAudioClipForMerger>& clips,
                                 LxMergedOutputChannelsEnum mode);
    virtual ~LxMultiAudioClipMergedStream();
    LxMultiAudioClipMergedStream(const LxMultiAudioClipMergedStream&) = delete;
    LxMultiAudioClipMergedStream& operator=(const LxMultiAudioClipMergedStream&) = delete;

    int WorthInBytes() const override;
    int WorthInFrames() const override;
    float WorthInSeconds() const override;
    int WorthInDeciSeconds() const override;
    void SetPortionToBePlayedBack(int startFrame, int endFrame) override;
    void SeekToBeginning() override;
    // channels must match GetNumberOfOutputChannels(); metaData must be null and
    // accumulate false.
    void GetNextPCMData(int channels, unsigned char* buffer, int bufferBytes, int& bytesOut, LxPCMData* metaData,
                        bool accumulate) override;
    int GetNumberOfOutputChannels() const;
    int GetNumberOfClips() const { return static_cast<int>(clips.size()); }

private:
    struct EntryData {
        int offsetFrames;
    };
    void CalculateNumOutputChannels();
    void DeleteClips();

    std::map<const LxAudioClip*, EntryData> entries;
    std::vector<std::unique_ptr<LxAudioClip>> clips;
    LxMergedOutputChannelsEnum mode;
};
