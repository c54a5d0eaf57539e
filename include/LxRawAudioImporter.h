#pragma once
// Reads a stream of raw PCM chunks, as LxRawAudioExporter writes them (and as
// captured audio is kept), for the import loop: signed 16-bit samples, mono or
// stereo, at 44100 frames per second or any rate from 1000 to 768000 (resampled
// by the loop). Every chunk of a stream must have the same format. A chunk of
// length 0 ends the audio; whatever follows it is ignored.
//
// The whole chunk structure is checked before anything is imported: a chunk that
// claims more bytes than the stream holds, a length that is not whole frames or
// above 176400, an unsupported format or a format that changes mid-stream give
// an assertion report and an import result of -1, and nothing is stored.
//
// Made by the controller's GetRawAudioImporter; owned by the caller. The stream
// passed to Import stays the caller's; its chunks start at its beginning.
#include <cstdint>
#include "LxAudioImporter.h"

class LXAUDIOCORE_API LxRawAudioImporter : public LxAudioImporter {
public:
    static constexpr int kChunkHeaderBytes = 16;
    static constexpr int kMaxChunkBytes = 176400;

    LxRawAudioImporter(LxAudioController& controller, LxCallBackFunction callback, void* context, bool noiseReduce);

    std::vector<LxString> GetSupportedFormats() override;
    // A stream whose first chunk header, at the current position, is one this importer takes.
    bool CanImport(ILxStream* stream) override;
    bool CanImport(const LxFile& file) override;
    // A file name ending in ".raw", in any letter case.
    bool CanImport(const LxString& fileName) override;
    unsigned int GetHeaderSize() override { return 0; }
    // Bytes after the end marker.
    unsigned int GetFooterSize() override { return footerSize; }
    // Bytes of audio in all chunks together, headers not counted.
    unsigned int GetAudioDataSize(ILxStream*) override { return audioDataSize; }
    int Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes, int outCapacity) override;
    bool Initialize() override;
    void Finalize() override {}
    short IsDecoderEOF() override;

private:
    struct ChunkHeader {
        int32_t bytes = 0;
        int32_t channels = 0;
        int32_t frameRate = 0;
        int32_t bitsPerSample = 0;
    };
    static ChunkHeader ParseHeader(const unsigned char* bytes);
    // Empty when the header is usable; otherwise the report to raise.
    static const char* CheckHeader(const ChunkHeader& header);

    uint32_t footerSize = 0;
    uint32_t audioDataSize = 0;
    // Bytes of chunks (and end marker) that Decode has to parse.
    int64_t chunkStreamBytes = 0;
    // Decode's position in the chunk structure.
    int64_t parsedBytes = 0;
    unsigned char header[kChunkHeaderBytes] = {};
    int headerFill = 0;
    int dataLeft = 0;
    bool finished = false;
};
