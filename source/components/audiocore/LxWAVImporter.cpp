#include "LxWAVImporter.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include "LxReportSites.h"
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxStreamUtil.h"

static const char* const kSourceFile = "source/components/audiocore/LxWAVImporter";

namespace {

uint16_t Read16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Read32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}

bool IsDataId(const unsigned char* id) {
    static const char kData[4] = {'D', 'A', 'T', 'A'};
    for (int i = 0; i < 4; ++i) {
        if (std::toupper(id[i]) != kData[i]) return false;
    }
    return true;
}

bool StartsWithRiffWave(ILxStream* stream) {
    if (stream == nullptr || !stream->IsOpen()) return false;
    int64_t start = stream->GetPosition();
    unsigned char bytes[12];
    int got = stream->Read(bytes, 12);
    stream->Seek(start, kLxSeekBegin);
    return got == 12 && std::memcmp(bytes, "RIFF", 4) == 0 && std::memcmp(bytes + 8, "WAVE", 4) == 0;
}

// Lowest and highest frame rates accepted; outside them resampling would need
// unreasonable amounts of memory, and no real recording uses them.
constexpr uint32_t kMinRate = 1000;
constexpr uint32_t kMaxRate = 768000;

}  // namespace

LxWAVImporter::LxWAVImporter(LxAudioController& owner, LxCallBackFunction callbackFunction, void* callbackContext,
                             bool reduceNoise)
    : LxAudioImporter(owner, callbackFunction, callbackContext, reduceNoise) {}

std::vector<LxString> LxWAVImporter::GetSupportedFormats() { return {LxString("wav"), LxString("wave")}; }

bool LxWAVImporter::CanImport(ILxStream* source) { return StartsWithRiffWave(source); }

bool LxWAVImporter::CanImport(const LxFile& file) {
    std::unique_ptr<ILxReadWriteStream> source = LxStreamUtil::CreateFileStreamRead(file);
    return source && StartsWithRiffWave(source.get());
}

bool LxWAVImporter::CanImport(const LxString& fileName) { return HasSupportedExtension(fileName); }

bool LxWAVImporter::ReadWAVEheaderFromStream(ILxStream* source, WAVEheader& header) {
    unsigned char bytes[16];
    if (source->Read(bytes, 12) != 12 || std::memcmp(bytes, "RIFF", 4) != 0 || std::memcmp(bytes + 8, "WAVE", 4) != 0) {
        return false;
    }
    header.riffSize = Read32(bytes + 4);
    // The fmt chunk normally comes first; chunks some writers put before it are skipped.
    for (;;) {
        if (source->Read(bytes, 8) != 8) return false;
        uint32_t size = Read32(bytes + 4);
        if (std::memcmp(bytes, "fmt ", 4) == 0) {
            if (size < 16 || source->Read(bytes, 16) != 16) return false;
            header.fmtSize = size;
            header.formatTag = Read16(bytes);
            header.channels = Read16(bytes + 2);
            header.sampleRate = Read32(bytes + 4);
            header.byteRate = Read32(bytes + 8);
            header.blockAlign = Read16(bytes + 12);
            header.bitsPerSample = Read16(bytes + 14);
            return true;
        }
        if (IsDataId(bytes)) return false;  // audio before any format
        int64_t skip = static_cast<int64_t>(size) + (size & 1u);
        if (!source->Seek(skip, kLxSeekCurrent) || source->IsEndOfStream()) return false;
    }
}

void LxWAVImporter::ComputeHeaderAndFooterSizes(int64_t headerEnd) {
    int64_t header = headerEnd;
    unsigned char bytes[8];
    uint32_t lastSize = 0;
    bool found = false;
    while (!stream->IsEndOfStream()) {
        if (stream->Read(bytes, 8) != 8) break;
        lastSize = Read32(bytes + 4);
        if (IsDataId(bytes)) {
            found = true;
            break;
        }
        int64_t size = static_cast<int64_t>(lastSize) + (lastSize & 1u);
        header += size + 8;
        stream->Seek(size, kLxSeekCurrent);
    }
    header += 8;
    audioDataSize = found ? lastSize : 0;
    headerSize = static_cast<uint32_t>(std::min<int64_t>(header, fileSize));
    footerSize = 0;
    if (static_cast<int64_t>(fileSize) > static_cast<int64_t>(audioDataSize) + headerSize) {
        footerSize = fileSize - audioDataSize - headerSize;
    }
    stream->Seek(headerEnd, kLxSeekBegin);
}

bool LxWAVImporter::Initialize() {
    if (stream == nullptr || !stream->IsOpen()) return false;
    stream->Seek(0, kLxSeekEnd);
    int64_t length = stream->GetPosition();
    fileSize = static_cast<uint32_t>(std::min<int64_t>(length, UINT32_MAX));
    stream->Seek(0, kLxSeekBegin);
    WAVEheader header;
    if (!ReadWAVEheaderFromStream(stream, header)) {
        LxAssertFailed("Not a WAVE file", kSourceFile, __LINE__);
        return false;
    }
    int64_t headerEnd = stream->GetPosition();
    bool supported = header.channels >= 1 && header.channels < 3 && header.sampleRate >= kMinRate &&
                     header.sampleRate <= kMaxRate;
    uint16_t b = header.bitsPerSample;
    switch (header.formatTag) {
        case 1: supported = supported && (b == 8 || b == 16 || b == 24 || b == 32); break;
        case 3: supported = supported && b == 32; break;
        case 65534: supported = supported && (b == 24 || b == 32); break;
        default: supported = false; break;
    }
    if (!supported) {
        LxReportAt("Not supported format", LxReportSites::kWavFormatNotSupported);
        return false;
    }
    sourceChannels = outputChannels = header.channels;
    frameRate = static_cast<int>(header.sampleRate);
    bits = header.bitsPerSample;
    formatTag = header.formatTag;
    channels = sourceChannels;
    sampleRate = frameRate;
    bitsPerSample = bits;
    // Whatever follows the 16 bytes of the fmt fields in that chunk.
    int64_t excess = static_cast<int64_t>(header.fmtSize) - 16 + (header.fmtSize & 1u);
    if (excess > 0) {
        headerEnd += excess;
        stream->Seek(headerEnd, kLxSeekBegin);
    }
    ComputeHeaderAndFooterSizes(headerEnd);
    if (audioDataSize == 0) {
        LxAssertFailed("No audio data in WAVE file", kSourceFile, __LINE__);
        return false;
    }
    MeasureLength();
    return true;
}

short LxWAVImporter::IsDecoderEOF() { return stream != nullptr && stream->IsEndOfStream() ? 1 : 0; }

int LxWAVImporter::convert8BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out) {
    for (int i = 0; i < inBytes; ++i) out[i] = static_cast<short>((in[i] - 128) * 256);
    return inBytes;
}

int LxWAVImporter::convert24BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out) {
    int samples = inBytes / 3;
    for (int i = 0; i < samples; ++i) out[i] = static_cast<short>(Read16(in + 3 * i + 1));
    return samples;
}

int LxWAVImporter::convert32BitToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out) {
    int samples = inBytes / 4;
    for (int i = 0; i < samples; ++i) out[i] = static_cast<short>(Read16(in + 4 * i + 2));
    return samples;
}

int LxWAVImporter::convert32BitFloatToLxAudioMonoFrame(const unsigned char* in, int inBytes, short* out) {
    int samples = inBytes / 4;
    for (int i = 0; i < samples; ++i) {
        uint32_t bitsOfFloat = Read32(in + 4 * i);
        float f;
        std::memcpy(&f, &bitsOfFloat, 4);
        // Truncated, not clamped: only the low 16 bits are kept. Values no
        // integer can hold (damaged data) become 0.
        double x = static_cast<double>(f) * 32767.0;
        int64_t whole = std::isfinite(x) && std::fabs(x) < 9.0e18 ? static_cast<int64_t>(x) : 0;
        out[i] = static_cast<short>(static_cast<uint16_t>(static_cast<uint64_t>(whole) & 0xFFFFu));
    }
    return samples;
}

int LxWAVImporter::Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes, int outCapacity) {
    outBytes = 0;
    if (in == nullptr || inBytes <= 0 || out == nullptr) return std::max(inBytes, 0);
    int bytesPerSample = bits / 8;
    if (bytesPerSample <= 0) return inBytes;
    int samples = inBytes / bytesPerSample;
    if (samples * 2 > outCapacity) {
        LxReportAt("", LxReportSites::kWavOutputTooSmall);
        samples = std::max(outCapacity, 0) / 2;
    }
    int usable = samples * bytesPerSample;
    short* pcm = reinterpret_cast<short*>(out);
    switch (bits) {
        case 16: std::memcpy(out, in, static_cast<size_t>(samples) * 2); break;
        case 8: convert8BitToLxAudioMonoFrame(in, usable, pcm); break;
        case 24: convert24BitToLxAudioMonoFrame(in, usable, pcm); break;
        default:
            // A 32-bit extensible file is converted as integer even when it holds floats.
            if (formatTag == 3) {
                convert32BitFloatToLxAudioMonoFrame(in, usable, pcm);
            } else {
                convert32BitToLxAudioMonoFrame(in, usable, pcm);
            }
            break;
    }
    outBytes = samples * 2;
    return inBytes;
}

bool LxWAVImporter::ReadWAVEheader(const LxFile& file, WAVEheader& header) {
    std::unique_ptr<ILxReadWriteStream> source = LxStreamUtil::CreateFileStreamRead(file);
    return source && ReadWAVEheaderFromStream(source.get(), header);
}

void LxWAVImporter::MeasureLength() {
    // The data chunk's size is the length the header promises; a file cut short
    // holds less. Writers that cannot go back to fill in the size (into a pipe)
    // leave 0xFFFFFFFF there: no length is promised then.
    const int64_t frameBytes = static_cast<int64_t>(sourceChannels) * (bits / 8);
    if (frameBytes <= 0) return;
    const int64_t held = std::clamp<int64_t>(static_cast<int64_t>(fileSize) - headerSize, 0, audioDataSize);
    foundFrames = held / frameBytes;
    promisedFrames = audioDataSize == UINT32_MAX ? -1 : static_cast<int64_t>(audioDataSize) / frameBytes;
    cutShort = promisedFrames >= 0 && foundFrames < promisedFrames;
}
