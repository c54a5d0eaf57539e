#pragma once
// The pull interface of anything that can be played: an audio clip, an effect
// clip or a merged stream. The player sets a portion, then calls GetNextPCMData
// until a call writes 0 bytes with the source finished. Not owned through this
// interface.
#include "LxPCMData.h"

class ILxAudioPlaybackClip {
public:
    virtual int WorthInBytes() const = 0;
    virtual int WorthInFrames() const = 0;
    virtual float WorthInSeconds() const = 0;
    virtual int WorthInDeciSeconds() const = 0;
    // Frames are 1-based; endFrame is exclusive, -1 plays to the end.
    virtual void SetPortionToBePlayedBack(int startFrame, int endFrame) = 0;
    virtual void SeekToBeginning() = 0;
    // Delivers at most the rest of one page as 16-bit PCM with channels channels
    // (1 or 2). With mix set the samples are added to those already in out,
    // wrapping in 16 bits. info, when given, receives the header of the page read.
    virtual void GetNextPCMData(int channels, unsigned char* out, int outCapacity, int& bytesWritten, LxPCMData* info,
                                bool mix) = 0;

protected:
    ~ILxAudioPlaybackClip() = default;
};
