#pragma once
// Writes audio as a RIFF WAVE file: mono or stereo, at 44100 frames per second
// or any other rate (resampled by the export loop), with 16-bit or 24-bit
// integer samples or 32-bit float samples. The file is the plain 44-byte form
// that every reader takes: "RIFF", "WAVE", a 16-byte fmt chunk (format tag 1 for
// integer samples, 3 for float) and the data chunk, padded to even length.
// The store's 16-bit samples become 24-bit samples as sample << 8 and float
// samples as sample / 32768, so that a file exported at 44100 imports back to
// the same samples.
//
// Made by the controller's GetWAVExporter(channels, frameRate, bitsPerSample,
// callback, context); owned by the caller.
#include "LxAudioExporter.h"

class LXAUDIOCORE_API LxWAVExporter : public LxAudioExporter {
public:
    static constexpr int kHeaderBytes = 44;

    LxWAVExporter(LxAudioController& controller, int channels, int frameRate, int bitsPerSample,
                  LxCallBackFunction callback, void* context);

    std::vector<LxString> GetSupportedFormats() override;
    // The format tag written into the fmt chunk: 1 (PCM) or 3 (IEEE float).
    int GetFormatTag() const { return bitsPerSample == 32 ? 3 : 1; }

protected:
    // 16, 24 or 32 (float).
    bool IsSupportedBitsPerSample(int bits) const override;
    // What the 32-bit size fields of RIFF can describe.
    int64_t GetMaximumFrames() const override;
    bool BeginEncoding(ILxStream& out) override;
    bool Encode(const short* samples, int n, ILxStream& out) override;
    bool EndEncoding(ILxStream& out) override;

private:
    // The 44 header bytes for dataBytes bytes of audio.
    std::vector<unsigned char> MakeHeader(uint32_t dataBytes) const;

    std::vector<unsigned char> encoded;
};
