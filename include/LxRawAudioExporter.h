#pragma once
// Writes audio as a stream of raw PCM chunks, the form in which captured audio
// is kept and compared (LxAudioClip::IsRawDataSameAs) and which
// LxRawAudioImporter reads back. Each chunk is, all little-endian:
//
//     int32 n            bytes of audio in this chunk, 1 to 176400, whole frames
//     int32 channels     1 or 2
//     int32 frameRate    frames per second
//     int32 bitsPerSample 16
//     n bytes            signed 16-bit interleaved samples
//
// There is no file header and no end marker: a stream ends with its last chunk
// (a reader also stops at a chunk of length 0). At 44100 frames per second one
// chunk is written per piece that the clip hands out (at most a page, or half a
// mono page read as stereo), so the chunks follow the clip's pages; at another
// rate the audio is resampled and cut into chunks of at most 176400 bytes.
//
// Made by the controller's GetRawAudioExporter(channels, frameRate, 16,
// callback, context); owned by the caller.
#include "LxAudioExporter.h"

class LXAUDIOCORE_API LxRawAudioExporter : public LxAudioExporter {
public:
    static constexpr int kChunkHeaderBytes = 16;
    static constexpr int kMaxChunkBytes = 176400;

    LxRawAudioExporter(LxAudioController& controller, int channels, int frameRate, int bitsPerSample,
                       LxCallBackFunction callback, void* context);

    std::vector<LxString> GetSupportedFormats() override;

protected:
    // 16 only: the chunks carry the store's samples.
    bool IsSupportedBitsPerSample(int bits) const override { return bits == 16; }
    bool BeginEncoding(ILxStream&) override { return true; }
    bool Encode(const short* samples, int n, ILxStream& out) override;
    bool EndEncoding(ILxStream&) override { return true; }

private:
    std::vector<unsigned char> chunk;
};
