#include "LxRawAudioImporter.h"

#include <algorithm>
#include <cstring>
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxStreamUtil.h"

static const char* const kSourceFile = "source/components/audiocore/LxRawAudioImporter";

namespace {

constexpr int32_t kMinRate = 1000;
constexpr int32_t kMaxRate = 768000;

int32_t Read32(const unsigned char* p) {
    return static_cast<int32_t>(static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
                                (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24));
}

const char* const kDamaged = "Damaged raw audio stream";
const char* const kUnsupported = "Not supported format";

}  // namespace

LxRawAudioImporter::LxRawAudioImporter(LxAudioController& owner, LxCallBackFunction callbackFunction,
                                       void* callbackContext, bool reduceNoise)
    : LxAudioImporter(owner, callbackFunction, callbackContext, reduceNoise) {}

std::vector<LxString> LxRawAudioImporter::GetSupportedFormats() { return {LxString("raw")}; }

LxRawAudioImporter::ChunkHeader LxRawAudioImporter::ParseHeader(const unsigned char* bytes) {
    return {Read32(bytes), Read32(bytes + 4), Read32(bytes + 8), Read32(bytes + 12)};
}

const char* LxRawAudioImporter::CheckHeader(const ChunkHeader& h) {
    if (h.channels < 1 || h.channels > 2 || h.bitsPerSample != 16 || h.frameRate < kMinRate || h.frameRate > kMaxRate) {
        // Lengths are checked first where the fields are plainly not a header.
        if (h.bytes < 0 || h.bytes > kMaxChunkBytes) return kDamaged;
        return kUnsupported;
    }
    if (h.bytes < 1 || h.bytes > kMaxChunkBytes || h.bytes % (h.channels * 2) != 0) return kDamaged;
    return nullptr;
}

bool LxRawAudioImporter::CanImport(ILxStream* source) {
    if (source == nullptr || !source->IsOpen()) return false;
    int64_t start = source->GetPosition();
    unsigned char bytes[kChunkHeaderBytes];
    int got = source->Read(bytes, kChunkHeaderBytes);
    int64_t length = source->GetLength();
    source->Seek(start, kLxSeekBegin);
    if (got != kChunkHeaderBytes) return false;
    ChunkHeader h = ParseHeader(bytes);
    return CheckHeader(h) == nullptr && start + kChunkHeaderBytes + h.bytes <= length;
}

bool LxRawAudioImporter::CanImport(const LxFile& file) {
    std::unique_ptr<ILxReadWriteStream> source = LxStreamUtil::CreateFileStreamRead(file);
    return source && CanImport(source.get());
}

bool LxRawAudioImporter::CanImport(const LxString& fileName) { return HasSupportedExtension(fileName); }

bool LxRawAudioImporter::Initialize() {
    if (stream == nullptr || !stream->IsOpen()) return false;
    stream->Seek(0, kLxSeekEnd);
    const int64_t length = stream->GetPosition();
    // The whole chunk structure is walked (headers only) before anything is
    // decoded, so that a damaged stream stores nothing.
    int64_t position = 0;
    int64_t audio = 0;
    ChunkHeader first;
    const char* problem = nullptr;
    while (position < length && problem == nullptr) {
        unsigned char bytes[kChunkHeaderBytes];
        stream->Seek(position, kLxSeekBegin);
        int got = stream->Read(bytes, kChunkHeaderBytes);
        if (got >= 4 && Read32(bytes) == 0) {
            position += 4;  // the end marker
            break;
        }
        if (got != kChunkHeaderBytes) {
            problem = kDamaged;
            break;
        }
        ChunkHeader h = ParseHeader(bytes);
        problem = CheckHeader(h);
        if (problem != nullptr) break;
        if (position + kChunkHeaderBytes + h.bytes > length) {
            problem = kDamaged;
            break;
        }
        if (audio == 0) {
            first = h;
        } else if (h.channels != first.channels || h.frameRate != first.frameRate) {
            problem = "Raw audio format changes within the stream";
            break;
        }
        audio += h.bytes;
        position += kChunkHeaderBytes + h.bytes;
    }
    if (problem == nullptr && audio == 0) problem = "No audio data in raw audio stream";
    if (problem == nullptr && audio > UINT32_MAX) problem = "Raw audio stream too long";
    if (problem != nullptr) {
        LxAssertFailed(problem, kSourceFile, __LINE__);
        return false;
    }
    channels = first.channels;
    sampleRate = first.frameRate;
    bitsPerSample = first.bitsPerSample;
    audioDataSize = static_cast<uint32_t>(audio);
    chunkStreamBytes = position;
    footerSize = static_cast<uint32_t>(std::min<int64_t>(length - position, UINT32_MAX));
    parsedBytes = 0;
    headerFill = 0;
    dataLeft = 0;
    finished = false;
    stream->Seek(0, kLxSeekBegin);
    return true;
}

int LxRawAudioImporter::Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes,
                               int outCapacity) {
    outBytes = 0;
    if (in == nullptr || inBytes <= 0 || out == nullptr) return 0;
    int i = 0;
    while (i < inBytes && !finished) {
        if (dataLeft > 0) {
            // Samples are little-endian in the stream, as in the store.
            int take = std::min({dataLeft, inBytes - i, outCapacity - outBytes});
            if (take <= 0) break;
            std::memcpy(out + outBytes, in + i, static_cast<size_t>(take));
            outBytes += take;
            i += take;
            dataLeft -= take;
            continue;
        }
        header[headerFill++] = in[i++];
        if (headerFill == 4 && Read32(header) == 0) {
            finished = true;
        } else if (headerFill == kChunkHeaderBytes) {
            headerFill = 0;
            ChunkHeader h = ParseHeader(header);
            // Checked once already; a stream that changed since is not read on.
            if (CheckHeader(h) != nullptr || h.channels != channels || h.frameRate != sampleRate) {
                LxAssertFailed(kDamaged, kSourceFile, __LINE__);
                decodeFailed = true;
                finished = true;
                break;
            }
            dataLeft = h.bytes;
        }
    }
    parsedBytes += i;
    return i;
}

short LxRawAudioImporter::IsDecoderEOF() {
    if (finished || parsedBytes >= chunkStreamBytes) return 1;
    return stream != nullptr && stream->IsEndOfStream() ? 1 : 0;
}
