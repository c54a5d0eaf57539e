#pragma once
// The header record of one page of the store: nine 32-bit fields, 36 bytes in
// "pcm.lxa" (see docs/store-format.md). Playback hands the record of the page it
// last fetched to its caller in this same form.
#include "LxRange.h"

// How a page's PCM is stored.
enum LxPageCodecEnum {
    kLxPageCodecRaw = 1,     // raw 16-bit PCM in "raw.lxa"
    kLxPageCodecVorbis = 2,  // Vorbis packets in "enc.lxa"
    kLxPageCodecSilent = 3,  // all-zero PCM, nothing stored
};

struct LxPCMData {
    int codec = 0;
    int pcmBytes = 0;       // decoded length in bytes, at most 176400
    LxRange dataRange;      // in "raw.lxa" (raw) or "enc.lxa" (Vorbis)
    LxRange thumbnailRange; // in "enc.lxa"
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;

    int BytesPerFrame() const { return (channels * bitsPerSample) / 8; }
};

// Size of one header record in "pcm.lxa"; page IDs step by this amount.
constexpr int kLxPageRecordBytes = 36;
// Largest decoded page: one second of 16-bit stereo at 44100 frames per second.
constexpr int kLxMaxPageBytes = 176400;
