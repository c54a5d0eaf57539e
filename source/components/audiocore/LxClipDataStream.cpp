#include "LxClipDataStream.h"

LxClipDataStream::LxClipDataStream(const LxFile& memberFile, LxPCMDataStream* pcm)
    : LxMemberStream(memberFile, "clip.lxa"), pcmStream(pcm) {}
