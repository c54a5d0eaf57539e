#pragma once
// "clip.lxa": clip records back to back (their layout is LxClipRecord's);
// records are found through the clip table of "map.lxa".
#include "LxMemberStream.h"

class LxClipDataStream : public LxMemberStream {
public:
    explicit LxClipDataStream(const LxFile& file);
};
