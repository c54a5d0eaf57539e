#include "LxWAVExporter.h"

#include <bit>
#include <cstring>
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/audiocore/LxWAVExporter";

namespace {

void Put16(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

void Put32(unsigned char* p, uint32_t v) {
    Put16(p, v & 0xFFFFu);
    Put16(p + 2, v >> 16);
}

}  // namespace

LxWAVExporter::LxWAVExporter(LxAudioController& owner, int outputChannels, int outputFrameRate, int outputBits,
                             LxCallBackFunction callbackFunction, void* callbackContext)
    : LxAudioExporter(owner, outputChannels, outputFrameRate, outputBits, callbackFunction, callbackContext) {}

std::vector<LxString> LxWAVExporter::GetSupportedFormats() { return {LxString("wav"), LxString("wave")}; }

bool LxWAVExporter::IsSupportedBitsPerSample(int bits) const { return bits == 16 || bits == 24 || bits == 32; }

int64_t LxWAVExporter::GetMaximumFrames() const {
    // The RIFF size (36 + data + pad byte) must fit 32 bits.
    int frameBytes = BytesPerFrame();
    return frameBytes > 0 ? (int64_t{0xFFFFFFFF} - 36 - 1) / frameBytes : 0;
}

std::vector<unsigned char> LxWAVExporter::MakeHeader(uint32_t dataBytes) const {
    std::vector<unsigned char> header(kHeaderBytes);
    unsigned char* p = header.data();
    const uint32_t blockAlign = static_cast<uint32_t>(BytesPerFrame());
    const uint32_t pad = dataBytes & 1u;
    std::memcpy(p, "RIFF", 4);
    Put32(p + 4, 36 + dataBytes + pad);
    std::memcpy(p + 8, "WAVE", 4);
    std::memcpy(p + 12, "fmt ", 4);
    Put32(p + 16, 16);
    Put16(p + 20, static_cast<uint32_t>(GetFormatTag()));
    Put16(p + 22, static_cast<uint32_t>(channels));
    Put32(p + 24, static_cast<uint32_t>(frameRate));
    Put32(p + 28, static_cast<uint32_t>(frameRate) * blockAlign);
    Put16(p + 32, blockAlign);
    Put16(p + 34, static_cast<uint32_t>(bitsPerSample));
    std::memcpy(p + 36, "data", 4);
    Put32(p + 40, dataBytes);
    return header;
}

bool LxWAVExporter::BeginEncoding(ILxStream& out) {
    // Sizes of 0 until the end, so that a file cut short by a crash reads as empty.
    std::vector<unsigned char> header = MakeHeader(0);
    return WriteAll(out, header.data(), kHeaderBytes);
}

bool LxWAVExporter::Encode(const short* samples, int n, ILxStream& out) {
    if (n <= 0) return true;
    const int sampleBytes = bitsPerSample / 8;
    // 16-bit samples on a little-endian machine are already the file's bytes.
    if (bitsPerSample == 16 && std::endian::native == std::endian::little) {
        return WriteAll(out, samples, n * sampleBytes);
    }
    encoded.resize(static_cast<size_t>(n) * static_cast<size_t>(sampleBytes));
    unsigned char* p = encoded.data();
    switch (bitsPerSample) {
        case 16:
            for (int i = 0; i < n; ++i, p += 2) Put16(p, static_cast<uint16_t>(samples[i]));
            break;
        case 24:
            for (int i = 0; i < n; ++i, p += 3) {
                const uint32_t v = static_cast<uint32_t>(samples[i]) << 8;
                p[0] = static_cast<unsigned char>(v);
                p[1] = static_cast<unsigned char>(v >> 8);
                p[2] = static_cast<unsigned char>(v >> 16);
            }
            break;
        default:
            for (int i = 0; i < n; ++i, p += 4) {
                const float f = static_cast<float>(samples[i]) / 32768.0f;
                uint32_t v;
                std::memcpy(&v, &f, 4);
                Put32(p, v);
            }
            break;
    }
    return WriteAll(out, encoded.data(), static_cast<int>(encoded.size()));
}

bool LxWAVExporter::EndEncoding(ILxStream& out) {
    const int64_t dataBytes = framesWritten * BytesPerFrame();
    if (dataBytes > GetMaximumFrames() * BytesPerFrame()) {
        LxAssertFailed("Too long for the export format", kSourceFile, __LINE__);
        return false;
    }
    if (dataBytes & 1) {
        const unsigned char pad = 0;
        if (!WriteAll(out, &pad, 1)) return false;
    }
    const int64_t end = out.GetPosition();
    std::vector<unsigned char> header = MakeHeader(static_cast<uint32_t>(dataBytes));
    if (!out.Seek(exportStart, kLxSeekBegin)) {
        LxAssertFailed("Cannot write the exported audio", kSourceFile, __LINE__);
        return false;
    }
    if (!WriteAll(out, header.data(), kHeaderBytes)) return false;
    if (!out.Seek(end, kLxSeekBegin)) {
        LxAssertFailed("Cannot write the exported audio", kSourceFile, __LINE__);
        return false;
    }
    return true;
}
