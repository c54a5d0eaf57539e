#include "LxRawAudioExporter.h"

#include <algorithm>

namespace {

void Put32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

}  // namespace

LxRawAudioExporter::LxRawAudioExporter(LxAudioController& owner, int outputChannels, int outputFrameRate,
                                       int outputBits, LxCallBackFunction callbackFunction, void* callbackContext)
    : LxAudioExporter(owner, outputChannels, outputFrameRate, outputBits, callbackFunction, callbackContext) {}

std::vector<LxString> LxRawAudioExporter::GetSupportedFormats() { return {LxString("raw")}; }

bool LxRawAudioExporter::Encode(const short* samples, int n, ILxStream& out) {
    // Chunks of whole frames: 176400 bytes hold whole mono and stereo frames.
    const int maxSamples = kMaxChunkBytes / 2;
    for (int done = 0; done < n;) {
        const int count = std::min(n - done, maxSamples);
        const int bytes = count * 2;
        chunk.resize(static_cast<size_t>(kChunkHeaderBytes + bytes));
        unsigned char* p = chunk.data();
        Put32(p, static_cast<uint32_t>(bytes));
        Put32(p + 4, static_cast<uint32_t>(channels));
        Put32(p + 8, static_cast<uint32_t>(frameRate));
        Put32(p + 12, static_cast<uint32_t>(bitsPerSample));
        p += kChunkHeaderBytes;
        for (int i = 0; i < count; ++i, p += 2) {
            const auto s = static_cast<uint16_t>(samples[done + i]);
            p[0] = static_cast<unsigned char>(s);
            p[1] = static_cast<unsigned char>(s >> 8);
        }
        if (!WriteAll(out, chunk.data(), static_cast<int>(chunk.size()))) return false;
        done += count;
    }
    return true;
}
