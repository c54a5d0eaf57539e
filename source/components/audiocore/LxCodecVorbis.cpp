#include "LxCodecVorbis.h"

// Placeholder until the Vorbis layer is written: no state is set up, and the
// codec produces nothing.
LxCodecVorbis::LxCodecVorbis(int channelCount) : LxCodec(channelCount) {}

LxCodecVorbis::~LxCodecVorbis() = default;

int LxCodecVorbis::Encode(const short*, int, unsigned char*, int) { return 0; }

int LxCodecVorbis::Decode(const unsigned char*, int, short*, int) { return 0; }
