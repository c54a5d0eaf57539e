// Stored Vorbis pages into the page decoder. The first byte picks the channel
// count and how much PCM the page record claims; the rest is the stored data.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>
#include "FuzzCommon.h"
#include "LxCodecVorbis.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietAsserts();
    if (size < 1) return 0;
    const int channels = (data[0] & 1) + 1;
    // The page's PCM length: up to a full page (176400 bytes) in steps of 1/16.
    const int pcmBytes = ((data[0] >> 1) % 17) * 11024 / (2 * channels) * (2 * channels);
    static std::vector<short> out(176400 / 2);
    LxCodecVorbis codec(channels);
    const int got = codec.Decode(data + 1, static_cast<int>(size - 1), out.data(), pcmBytes);
    fuzz::Note("decoded bytes", got);
    if (got < 0 || got > pcmBytes || got % (2 * channels) != 0) std::abort();
    return 0;
}
