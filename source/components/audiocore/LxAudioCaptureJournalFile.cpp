#include "LxAudioCaptureJournalFile.h"

#include <cstring>
#include "LxAudioConstants.h"
#include "LxAudioCaptureData.h"
#include "LxCrc32.h"
#include "LxPublic/LxFailureWatch.h"
#include "LxPublic/LxStreamUtil.h"

namespace {

constexpr uint32_t kVersion = 1;
constexpr size_t kHeaderBytes = 24;
constexpr size_t kBufferHeadBytes = 32;
constexpr size_t kEndBytes = 12;
const unsigned char kJournalMagic[4] = {'L', 'X', 'C', 'J'};
const unsigned char kBufferMagic[4] = {'L', 'X', 'C', 'B'};
const unsigned char kEndMagic[4] = {'L', 'X', 'C', 'E'};

class Writer {
public:
    explicit Writer(std::vector<unsigned char>& target) : out(target) {}
    void Bytes(const void* data, size_t n) {
        const auto* p = static_cast<const unsigned char*>(data);
        out.insert(out.end(), p, p + n);
    }
    void U16(uint32_t v) {
        for (int i = 0; i < 2; ++i) out.push_back(static_cast<unsigned char>(v >> (8 * i)));
    }
    void U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(v >> (8 * i)));
    }
    void U64(uint64_t v) {
        for (int i = 0; i < 8; ++i) out.push_back(static_cast<unsigned char>(v >> (8 * i)));
    }
    // CRC-32 of everything from offset `from` on, appended.
    void Crc(size_t from) { U32(Checksum(out.data() + from, out.size() - from, 0)); }
    static uint32_t Checksum(const unsigned char* data, size_t n, uint32_t crc) { return LxCrc32::Update(crc, data, n); }

private:
    std::vector<unsigned char>& out;
};

uint32_t U16At(const unsigned char* p) { return p[0] | (static_cast<uint32_t>(p[1]) << 8); }
uint32_t U32At(const unsigned char* p) {
    return p[0] | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}
uint64_t U64At(const unsigned char* p) { return U32At(p) | (static_cast<uint64_t>(U32At(p + 4)) << 32); }

// Reads exactly n bytes; false at the end of the file (or on a short read).
bool ReadExactly(ILxStream& in, void* buffer, size_t n) {
    return in.Read(buffer, static_cast<int>(n)) == static_cast<int>(n);
}

}  // namespace

LxAudioCaptureJournalFile::~LxAudioCaptureJournalFile() { Close(); }

bool LxAudioCaptureJournalFile::Create(const LxFile& journalFile, int64_t startTimeMS) {
    Close();
    file = journalFile;
    audioBytes = 0;
    stream = LxStreamUtil::CreateFileStreamReadWrite(journalFile, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
    if (!stream) return false;
    std::vector<unsigned char> header;
    Writer out(header);
    out.Bytes(kJournalMagic, 4);
    out.U32(kVersion);
    out.U64(static_cast<uint64_t>(startTimeMS));
    out.U32(0);
    out.Crc(0);
    return WriteRecord(header) && Sync();
}

bool LxAudioCaptureJournalFile::AppendBuffer(const LxAudioCaptureData& item) {
    if (!stream || item.data == nullptr || item.byteCount <= 0) return false;
    std::vector<unsigned char> record;
    record.reserve(kBufferHeadBytes + static_cast<size_t>(item.byteCount));
    Writer out(record);
    out.Bytes(kBufferMagic, 4);
    out.U32(static_cast<uint32_t>(item.byteCount));
    out.U16(static_cast<uint32_t>(item.channels));
    out.U16(static_cast<uint32_t>(item.bitsPerSample));
    out.U32(static_cast<uint32_t>(item.framesPerSecond));
    uint32_t volumeBits = 0;
    std::memcpy(&volumeBits, &item.volume, sizeof volumeBits);
    out.U32(volumeBits);
    out.U64(item.timeStamp);
    uint32_t crc = Writer::Checksum(record.data(), record.size(), 0);
    crc = Writer::Checksum(item.data, static_cast<size_t>(item.byteCount), crc);
    out.U32(crc);
    out.Bytes(item.data, static_cast<size_t>(item.byteCount));
    if (!WriteRecord(record)) return false;
    audioBytes += item.byteCount;
    return true;
}

bool LxAudioCaptureJournalFile::AppendEnd(int clipID) {
    if (!stream) return false;
    std::vector<unsigned char> record;
    Writer out(record);
    out.Bytes(kEndMagic, 4);
    out.U32(static_cast<uint32_t>(clipID));
    out.Crc(0);
    return WriteRecord(record);
}

bool LxAudioCaptureJournalFile::WriteRecord(const std::vector<unsigned char>& bytes) {
    // Flushed at once: the record is the operating system's to keep from here
    // on, whatever happens to this process.
    return stream->Write(bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size()) &&
           stream->Flush();
}

bool LxAudioCaptureJournalFile::Sync() { return stream && stream->Sync(); }

void LxAudioCaptureJournalFile::Close() {
    if (stream) stream->Close();
    stream.reset();
}

bool LxAudioCaptureJournalFile::Read(const LxFile& file, LxAudioInterruptedRecording& info,
                                     const std::function<void(const Buffer&)>& visit, int64_t& damageOffset) {
    info = LxAudioInterruptedRecording();
    info.journal = file;
    damageOffset = -1;
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    unsigned char header[kHeaderBytes];
    if (!in || !ReadExactly(*in, header, sizeof header) || std::memcmp(header, kJournalMagic, 4) != 0 ||
        U32At(header + 4) != kVersion || Writer::Checksum(header, 20, 0) != U32At(header + 20)) {
        info.readable = false;
        return false;
    }
    info.startTimeMS = static_cast<int64_t>(U64At(header + 8));
    const LxFailureWatch readFailures(*in, LxFailureWatch::kReads);
    const int64_t length = in->GetLength();
    int64_t position = static_cast<int64_t>(kHeaderBytes);
    int64_t audioBytes = 0;
    Buffer buffer;
    bool formatSeen = false;
    for (;;) {
        unsigned char head[kBufferHeadBytes];
        const int64_t left = length - position;
        if (left == 0) break;
        // A record cut short at the end of the file is what a kill leaves: not damage.
        if (left < 4 || !ReadExactly(*in, head, 4)) break;
        if (std::memcmp(head, kEndMagic, 4) == 0) {
            if (left < static_cast<int64_t>(kEndBytes)) break;
            if (!ReadExactly(*in, head + 4, kEndBytes - 4)) break;
            if (Writer::Checksum(head, 8, 0) != U32At(head + 8)) {
                damageOffset = position;
                break;
            }
            info.ended = true;
            break;
        }
        if (std::memcmp(head, kBufferMagic, 4) != 0) {
            damageOffset = position;
            break;
        }
        if (left < static_cast<int64_t>(kBufferHeadBytes) || !ReadExactly(*in, head + 4, kBufferHeadBytes - 4)) break;
        const uint32_t bytes = U32At(head + 4);
        const int channels = static_cast<int>(U16At(head + 8));
        const int bits = static_cast<int>(U16At(head + 10));
        const int rate = static_cast<int>(U32At(head + 12));
        const bool usable = bytes > 0 && bytes <= kMaxBufferBytes && (channels == 1 || channels == 2) &&
                            bits == 16 && rate == kLxFrameRate && (!formatSeen || channels == buffer.channels);
        if (!usable) {
            damageOffset = position;
            break;
        }
        if (left < static_cast<int64_t>(kBufferHeadBytes + bytes)) break;  // cut short by the end of the file
        buffer.pcm.resize(bytes);
        if (!ReadExactly(*in, buffer.pcm.data(), bytes)) break;
        uint32_t crc = Writer::Checksum(head, 28, 0);
        crc = Writer::Checksum(buffer.pcm.data(), bytes, crc);
        if (crc != U32At(head + 28)) {
            damageOffset = position;
            break;
        }
        buffer.channels = channels;
        buffer.bitsPerSample = bits;
        buffer.framesPerSecond = rate;
        uint32_t volumeBits = U32At(head + 16);
        std::memcpy(&buffer.volume, &volumeBits, sizeof buffer.volume);
        formatSeen = true;
        info.channels = channels;
        audioBytes += bytes;
        if (visit) visit(buffer);
        position += static_cast<int64_t>(kBufferHeadBytes + bytes);
    }
    // A read the disk refused looks like the end of the file to the loop; it
    // is damage where it happened, not the end a kill leaves.
    if (damageOffset < 0 && readFailures.Failed()) damageOffset = position;
    // A recording keeps whole multiples of 180 bytes, as every capture does.
    info.frames = (audioBytes / kLxWholeFrameBlockBytes * kLxWholeFrameBlockBytes) / (2 * info.channels);
    return true;
}
