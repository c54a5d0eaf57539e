#pragma once
// "clip.lxa": serialised clips back to back. Clips read and write themselves
// through the stream; records are found through the clip table of "map.lxa".
#include "LxMemberStream.h"

class LxPCMDataStream;

class LxClipDataStream : public LxMemberStream {
public:
    LxClipDataStream(const LxFile& file, LxPCMDataStream* pcm);

private:
    LxPCMDataStream* pcmStream;  // kept for the store's structure; not used here
};
