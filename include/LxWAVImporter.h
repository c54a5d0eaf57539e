#pragma once
// Reads a RIFF WAVE source for the import loop: 8, 16, 24 and 32-bit integer
// and 32-bit float samples, mono or stereo, any frame rate (resampled to 44100
// by the loop). Other formats, and files that are not WAVE at all, are refused
// with an assertion report. Made by the controller (GetWAVImporter), owned by the caller.
#include <cstdint>
#include "LxAudioImporter.h"

class LXAUDIOCORE_API LxWAVImporter : public LxAudioImporter {
public:
    // What ReadWAVEheaderFromStream takes from the RIFF header and the fmt chunk.
    struct WAVEheader {
        uint32_t riffSize = 0;
        uint16_t formatTag = 0;
        uint16_t channels = 0;
        uint32_t sampleRate = 0;
        uint32_t byteRate = 0;
        uint16_t blockAlign = 0;
        uint16_t bitsPerSample = 0;
        uint32_t fmtSize = 0;
    };

    LxWAVImporter(LxAudioController& controller, LxCallBackFunction callback, void* context, bool noiseReduce);

    std::vector<LxString> GetSupportedFormats() override;
    // A stream that starts with a RIFF WAVE header.
    bool CanImport(ILxStream* stream) override;
    // A file that exists and starts with a RIFF WAVE header.
    bool CanImport(const LxFile& file) override;
    // A file name ending in ".wav" or ".wave", in any letter case.
    bool CanImport(const LxString& fileName) override;
    unsigned int GetHeaderSize() override { return headerSize; }
    unsigned int GetFooterSize() override { return footerSize; }
    unsigned int GetAudioDataSize(ILxStream*) override { return audioDataSize; }
    int Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes, int outCapacity) override;
    bool Initialize() override;
    void Finalize() override {}
    short IsDecoderEOF() override;

    // Reads the RIFF header and the fmt chunk of file as an import would, but
    // imports nothing and reports nothing: a host can tell what a file holds
    // (say, its channels) before it imports it. False when file is no WAVE file.
    bool ReadWAVEheader(const LxFile& file, WAVEheader& header);

private:
    // Sets the promised and found lengths (see LxAudioImporter::GetPromisedFrames)
    // from the data chunk's size and the bytes that follow its header.
    void MeasureLength();
    // Reads the RIFF header and the fmt chunk (skipping any chunk before it);
    // false when the stream is not a WAVE file.
    bool ReadWAVEheaderFromStream(ILxStream* source, WAVEheader& header);
    void ComputeHeaderAndFooterSizes(int64_t headerEnd);
    static int convert8BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out);
    static int convert24BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out);
    static int convert32BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out);
    static int convert32BitFloatToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out);

    int sourceChannels = 0;
    int outputChannels = 0;
    int frameRate = 0;
    int bits = 0;
    uint32_t fileSize = 0;
    uint16_t formatTag = 0;
    uint32_t headerSize = 0;
    uint32_t footerSize = 0;
    uint32_t audioDataSize = 0;
};
