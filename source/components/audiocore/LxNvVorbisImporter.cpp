#include "LxNvVorbisImporter.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxStreamUtil.h"

// The static callback sets of the header are not used (and would be unused variables).
#define OV_EXCLUDE_STATIC_CALLBACKS
#include <vorbis/vorbisfile.h>

static const char* const kSourceFile = "source/components/audiocore/LxNvVorbisImporter";

namespace {

constexpr long kMinRate = 1000;
constexpr long kMaxRate = 768000;

}  // namespace

// libvorbisfile's state, and its reading position in the source. The loop of
// the importer framework reads the same stream for itself, so every callback
// seeks to the decoder's own position before it reads.
struct LxNvVorbisImporter::Decoder {
    OggVorbis_File file{};
    bool open = false;
    ILxStream* source = nullptr;
    int64_t position = 0;
    int channels = 0;
    long rate = 0;
    int link = -1;

    static size_t Read(void* buffer, size_t size, size_t count, void* self) {
        auto* d = static_cast<Decoder*>(self);
        try {
            if (size == 0 || count == 0) return 0;
            if (d->source == nullptr || !d->source->IsOpen()) {
                errno = EIO;
                return 0;
            }
            size_t wanted = std::min<size_t>(size * count, 1u << 20);
            if (!d->source->Seek(d->position, kLxSeekBegin)) {
                errno = EIO;
                return 0;
            }
            int got = d->source->Read(buffer, static_cast<int>(wanted));
            if (got < 0) got = 0;
            d->position += got;
            // No bytes and errno 0 is how the end of the source reads to libvorbisfile.
            if (got == 0) errno = 0;
            return static_cast<size_t>(got) / size;
        } catch (...) {
            errno = EIO;
            return 0;
        }
    }

    static int Seek(void* self, ogg_int64_t offset, int whence) {
        auto* d = static_cast<Decoder*>(self);
        try {
            if (d->source == nullptr || !d->source->IsOpen()) return -1;
            int64_t base = 0;
            switch (whence) {
                case SEEK_SET: base = 0; break;
                case SEEK_CUR: base = d->position; break;
                case SEEK_END: base = d->source->GetLength(); break;
                default: return -1;
            }
            int64_t target = base + offset;
            if (target < 0) return -1;
            d->position = target;
            return 0;
        } catch (...) {
            return -1;
        }
    }

    static long Tell(void* self) { return static_cast<long>(static_cast<Decoder*>(self)->position); }

    void Close() {
        if (open) ov_clear(&file);
        open = false;
    }
};

LxNvVorbisImporter::LxNvVorbisImporter(LxAudioController& owner, LxCallBackFunction callbackFunction,
                                       void* callbackContext, bool reduceNoise)
    : LxAudioImporter(owner, callbackFunction, callbackContext, reduceNoise), decoder(std::make_unique<Decoder>()) {}

LxNvVorbisImporter::~LxNvVorbisImporter() { decoder->Close(); }

std::vector<LxString> LxNvVorbisImporter::GetSupportedFormats() { return {LxString("ogg"), LxString("oga")}; }

bool LxNvVorbisImporter::CanImport(ILxStream* source) {
    if (source == nullptr || !source->IsOpen()) return false;
    // The first page of a Vorbis stream: "OggS", 23 more header bytes, one
    // segment, then the identification packet "\x01vorbis".
    int64_t start = source->GetPosition();
    unsigned char bytes[35];
    int got = source->Read(bytes, sizeof bytes);
    source->Seek(start, kLxSeekBegin);
    return got == static_cast<int>(sizeof bytes) && std::memcmp(bytes, "OggS", 4) == 0 &&
           std::memcmp(bytes + 28, "\x01vorbis", 7) == 0;
}

bool LxNvVorbisImporter::CanImport(const LxFile& file) {
    std::unique_ptr<ILxReadWriteStream> source = LxStreamUtil::CreateFileStreamRead(file);
    return source && CanImport(source.get());
}

bool LxNvVorbisImporter::CanImport(const LxString& fileName) { return HasSupportedExtension(fileName); }

unsigned int LxNvVorbisImporter::GetAudioDataSize(ILxStream* source) {
    if (source == nullptr || !source->IsOpen()) return 0;
    return static_cast<unsigned int>(std::clamp<int64_t>(source->GetLength(), 0, UINT32_MAX));
}

bool LxNvVorbisImporter::Initialize() {
    decoder->Close();
    endOfAudio = false;
    totalFrames = -1;
    if (stream == nullptr || !stream->IsOpen()) return false;
    decoder->source = stream;
    decoder->position = 0;
    decoder->link = -1;
    ov_callbacks callbacks{&Decoder::Read, &Decoder::Seek, nullptr, &Decoder::Tell};
    // On failure libvorbisfile has already released what it allocated.
    if (ov_open_callbacks(decoder.get(), &decoder->file, nullptr, 0, callbacks) != 0) {
        LxAssertFailed("Not an Ogg Vorbis file", kSourceFile, __LINE__);
        return false;
    }
    decoder->open = true;
    const vorbis_info* info = ov_info(&decoder->file, 0);
    const long links = ov_streams(&decoder->file);
    bool supported = info != nullptr && info->channels >= 1 && info->channels <= 2 && info->rate >= kMinRate &&
                     info->rate <= kMaxRate;
    for (long i = 1; supported && i < links; ++i) {
        const vorbis_info* other = ov_info(&decoder->file, static_cast<int>(i));
        supported = other != nullptr && other->channels == info->channels && other->rate == info->rate;
    }
    if (!supported) {
        LxAssertFailed("Not supported format", kSourceFile, __LINE__);
        decoder->Close();
        return false;
    }
    decoder->channels = info->channels;
    decoder->rate = info->rate;
    channels = info->channels;
    sampleRate = static_cast<int>(info->rate);
    bitsPerSample = 16;
    ogg_int64_t total = ov_pcm_total(&decoder->file, -1);
    totalFrames = total >= 0 ? static_cast<int64_t>(total) : -1;
    if (totalFrames == 0) {
        LxAssertFailed("No audio data in Ogg Vorbis file", kSourceFile, __LINE__);
        decoder->Close();
        return false;
    }
    // Decoding starts from the very beginning of the file: left where opening
    // the file leaves it, libvorbisfile (1.3.7) passes over the whole first link
    // of a chained file.
    if (ov_raw_seek(&decoder->file, 0) != 0) {
        LxAssertFailed("Damaged Ogg Vorbis data", kSourceFile, __LINE__);
        decoder->Close();
        return false;
    }
    decodedFrames = 0;
    MeasureLength();
    return true;
}

int LxNvVorbisImporter::Decode(const unsigned char*, int, unsigned char* out, int& outBytes, int outCapacity) {
    outBytes = 0;
    if (!decoder->open || endOfAudio || out == nullptr) return 0;
    const int frameBytes = decoder->channels * 2;
    const int bigEndian = std::endian::native == std::endian::big ? 1 : 0;
    // Fill the output with whole frames; libvorbisfile hands out at most one
    // decoded packet's worth per call.
    while (outCapacity - outBytes >= frameBytes) {
        int link = -1;
        long got = ov_read(&decoder->file, reinterpret_cast<char*>(out + outBytes), outCapacity - outBytes, bigEndian,
                           2, 1, &link);
        if (got == 0) {
            endOfAudio = true;
            // Fewer frames than the last page promised: pages were lost on the way.
            if (totalFrames >= 0 && decodedFrames < totalFrames) {
                LxAssertFailed("Damaged Ogg Vorbis data", kSourceFile, __LINE__);
                decodeFailed = true;
                outBytes = 0;
            }
            break;
        }
        if (got < 0 || got % frameBytes != 0 || got > outCapacity - outBytes) {
            LxAssertFailed("Damaged Ogg Vorbis data", kSourceFile, __LINE__);
            decodeFailed = true;
            endOfAudio = true;
            outBytes = 0;
            break;
        }
        if (link != decoder->link) {
            const vorbis_info* info = ov_info(&decoder->file, link);
            if (info == nullptr || info->channels != decoder->channels || info->rate != decoder->rate) {
                LxAssertFailed("Not supported format", kSourceFile, __LINE__);
                decodeFailed = true;
                endOfAudio = true;
                outBytes = 0;
                break;
            }
            decoder->link = link;
        }
        outBytes += static_cast<int>(got);
        decodedFrames += got / frameBytes;
    }
    return 0;
}

void LxNvVorbisImporter::Finalize() { decoder->Close(); }

short LxNvVorbisImporter::IsDecoderEOF() { return endOfAudio || !decoder->open ? 1 : 0; }

int64_t LxNvVorbisImporter::GetProgressPosition(int64_t) { return decoder->position; }

void LxNvVorbisImporter::MeasureLength() {
    // Walks the page headers from the start. The decoder reads up to the last
    // whole page; a page cut off after it still carries, in its header, the
    // granule position (frames so far) that the stream would have reached.
    promisedFrames = -1;
    foundFrames = totalFrames;
    cutShort = false;
    const int64_t length = stream->GetLength();
    int64_t at = 0;
    bool anyPage = false, endOfStream = false;
    int64_t lastGranule = -1, cutGranule = -1;
    uint32_t lastSerial = 0, cutSerial = 0;
    bool cutPage = false;
    unsigned char header[27 + 255];
    auto granuleOf = [&header] {
        uint64_t value = 0;
        for (int i = 13; i >= 6; --i) value = value << 8 | header[i];
        return static_cast<int64_t>(value);
    };
    auto serialOf = [&header] {
        return static_cast<uint32_t>(header[14]) | static_cast<uint32_t>(header[15]) << 8 |
               static_cast<uint32_t>(header[16]) << 16 | static_cast<uint32_t>(header[17]) << 24;
    };
    while (at < length) {
        if (!stream->Seek(at, kLxSeekBegin)) return;
        const int got = stream->Read(header, 27);
        if (got < 27) {
            // A page header cut off: a cut page, if what is left begins like one.
            cutPage = got > 0 && std::memcmp(header, "OggS", static_cast<size_t>(std::min(got, 4))) == 0;
            break;
        }
        if (std::memcmp(header, "OggS", 4) != 0) break;  // not a page: whatever follows the stream
        const int segments = header[26];
        if (stream->Read(header + 27, segments) != segments) {
            cutPage = true;
            break;
        }
        int64_t body = 0;
        for (int i = 0; i < segments; ++i) body += header[27 + i];
        const int64_t end = at + 27 + segments + body;
        if (end > length) {
            cutPage = true;
            cutGranule = granuleOf();
            cutSerial = serialOf();
            break;
        }
        anyPage = true;
        // -1: no packet ends on this page.
        if (granuleOf() != -1) lastGranule = granuleOf();
        lastSerial = serialOf();
        endOfStream = (header[5] & 0x04) != 0;
        at = end;
    }
    if (cutPage) {
        cutShort = true;
        if (cutGranule >= 0 && lastGranule >= 0 && cutSerial == lastSerial && totalFrames >= 0 &&
            cutGranule >= lastGranule)
            promisedFrames = totalFrames + (cutGranule - lastGranule);
    } else if (anyPage && !endOfStream) {
        cutShort = true;  // whole pages only, but the stream's last one is missing
    } else {
        promisedFrames = totalFrames;
    }
}
