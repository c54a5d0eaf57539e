#pragma once
// Reads an Ogg Vorbis file for the import loop: mono or stereo, any frame rate
// from 1000 to 768000 (rates other than 44100 are resampled by the loop), also
// chained files whose links all share one format. Decoding is done by
// libvorbisfile, which reads the source stream itself through callbacks; the
// loop's own chunks of the source are not used, and progress follows the
// decoder's position in the source.
//
// Files that libvorbisfile cannot open, that have more than two channels or no
// audio, whose links differ in format, or whose data turns out damaged while
// decoding (a corrupt page, or fewer frames than the last page promises) give an
// assertion report and an import result of -1; nothing is stored. A file that is
// merely cut short is read up to its last whole page, as players play it, and
// IsCutShort says so.
//
// Decoding always starts at the beginning of the file (libvorbisfile 1.3.7 would
// otherwise pass over the first link of a chained file).
//
// Made by the controller's GetNvVorbisImporter (without noise suppression);
// owned by the caller. The stream passed to Import stays the caller's.
#include <memory>
#include "LxAudioImporter.h"

class LXAUDIOCORE_API LxNvVorbisImporter : public LxAudioImporter {
public:
    LxNvVorbisImporter(LxAudioController& controller, LxCallBackFunction callback, void* context,
                       bool noiseReduce = false);
    ~LxNvVorbisImporter() override;

    std::vector<LxString> GetSupportedFormats() override;
    // A stream that starts, at its current position, with an Ogg page holding a
    // Vorbis identification header.
    bool CanImport(ILxStream* stream) override;
    bool CanImport(const LxFile& file) override;
    // A file name ending in ".ogg" or ".oga", in any letter case.
    bool CanImport(const LxString& fileName) override;
    // The decoder reads the whole source: no header or footer for the loop to skip.
    unsigned int GetHeaderSize() override { return 0; }
    unsigned int GetFooterSize() override { return 0; }
    unsigned int GetAudioDataSize(ILxStream* stream) override;
    // Ignores the loop's input (it consumes none) and decodes the next block of
    // samples from the decoder's own reading of the source.
    int Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes, int outCapacity) override;
    bool Initialize() override;
    void Finalize() override;
    short IsDecoderEOF() override;
    int64_t GetProgressPosition(int64_t bytesReadByTheLoop) override;

    // Frames per channel in the file, from its last granule position; -1 before Initialize.
    int64_t GetTotalFrames() const { return totalFrames; }

private:
    // Sets the promised and found lengths (see LxAudioImporter::GetPromisedFrames):
    // a stream whose last page is cut off promises the granule position in that
    // page's header; one that ends on a whole page without the end-of-stream
    // flag is cut short by a length no header tells.
    void MeasureLength();

    struct Decoder;
    std::unique_ptr<Decoder> decoder;
    int64_t totalFrames = -1;
    int64_t decodedFrames = 0;
    bool endOfAudio = false;
};
