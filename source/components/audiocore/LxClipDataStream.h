#pragma once
// "clip.lxa": serialised clips back to back. Clips read and write themselves
// through the stream; records are found through the clip table of "map.lxa".
#include "LxMemberStream.h"

class LxPCMDataStream;

class LxClipDataStream : public LxMemberStream {
public:
    LxClipDataStream(const LxFile& file, LxPCMDataStream* pcm);
    // The page store whose pages the clips refer to.
    LxPCMDataStream* GetPCMStream() const { return pcmStream; }

private:
    LxPCMDataStream* pcmStream;
};
