#include "LxPCMDataStream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>
#include "LxAudioConstants.h"
#include "LxCodecVorbis.h"
#include "LxDataStream.h"
#include "LxPCMConverter.h"
#include "LxPublic/LxAssert.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define LX_PCM_SSE2 1
#endif

static const char* const kSourceFile = "source/components/audiocore/LxPCMDataStream";

namespace {

// Size of a full page's thumbnail for a channel count: 3920 bytes mono, 1960 stereo.
int FullThumbnailBytes(int channels) { return channels > 0 ? (1960 / channels) * 2 : 0; }

int16_t SampleAt(const unsigned char* pcm, int index) {
    int16_t sample;
    std::memcpy(&sample, pcm + 2 * index, 2);
    return sample;
}

// Minimum and maximum of each of kChannels interleaved channels over count
// 16-bit samples, all starting at 0. Eight lanes run side by side (one SSE2
// register where there is one); as eight is a multiple of the channel count,
// lane k always sees channel k % kChannels.
template <int kChannels>
void GroupMinMax(const unsigned char* pcm, int count, int16_t (&lo)[kChannels], int16_t (&hi)[kChannels]) {
    constexpr int kLanes = 8;
    int16_t laneLo[kLanes] = {}, laneHi[kLanes] = {};
    int i = 0;
#if defined(LX_PCM_SSE2)
    __m128i vectorLo = _mm_setzero_si128(), vectorHi = _mm_setzero_si128();
    for (; i + kLanes <= count; i += kLanes) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcm + 2 * i));
        vectorLo = _mm_min_epi16(vectorLo, v);
        vectorHi = _mm_max_epi16(vectorHi, v);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(laneLo), vectorLo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(laneHi), vectorHi);
#endif
    for (; i < count; ++i) {
        const int16_t sample = SampleAt(pcm, i);
        laneLo[i % kLanes] = std::min(laneLo[i % kLanes], sample);
        laneHi[i % kLanes] = std::max(laneHi[i % kLanes], sample);
    }
    for (int c = 0; c < kChannels; ++c) {
        lo[c] = 0;
        hi[c] = 0;
        for (int k = c; k < kLanes; k += kChannels) {
            lo[c] = std::min(lo[c], laneLo[k]);
            hi[c] = std::max(hi[c], laneHi[k]);
        }
    }
}

bool IsAllZero(const unsigned char* bytes, int count) {
    // Compared block by block against a zeroed page.
    static const std::vector<unsigned char> zeros(kLxMaxPageBytes, 0);
    for (int done = 0; done < count; done += kLxMaxPageBytes) {
        int n = std::min(kLxMaxPageBytes, count - done);
        if (std::memcmp(bytes + done, zeros.data(), static_cast<size_t>(n)) != 0) return false;
    }
    return true;
}

}  // namespace

LxPCMDataStream::LxPCMDataStream(const LxFile& memberFile, LxDataStream* raw, LxDataStream* enc)
    : LxMemberStream(memberFile, "pcm.lxa"),
      rawStream(raw),
      encStream(enc),
      pageBuffer(kLxMaxPageBytes),
      monoCodec(std::make_unique<LxCodecVorbis>(1)),
      stereoCodec(std::make_unique<LxCodecVorbis>(2)) {}

LxPCMDataStream::~LxPCMDataStream() {
    monoCodec.reset();
    stereoCodec.reset();
}

LxCodec* LxPCMDataStream::GetCodec(int channels) const {
    if (channels == 1) return monoCodec.get();
    if (channels == 2) return stereoCodec.get();
    return nullptr;
}

void LxPCMDataStream::AppendPage(const void* pcm, int pcmBytes, int channels, int sampleRate, int bitsPerSample,
                                 int& pageID) {
    pageID = -1;
    if (!stream) return;
    const auto* bytes = static_cast<const unsigned char*>(pcm);
    if (bytes == nullptr) pcmBytes = 0;
    if (channels < 0 || channels > kMaxChannels || bitsPerSample < 0 || bitsPerSample > kMaxBitsPerSample) {
        LxAssertFailed("page format not supported", kSourceFile, __LINE__);
        return;
    }
    if (pcmBytes > kLxMaxPageBytes) {
        // A page holds at most 176,400 bytes: the codecs, the compressor and the
        // copy between stores are all sized to that.
        LxAssertFailed("page longer than 176400 bytes", kSourceFile, __LINE__);
        return;
    }

    // Thumbnail: one {min, max} pair of 16-bit values per 90 frames; both start
    // at 0, so min <= 0 <= max. Samples are read as 16-bit whatever the format says.
    int64_t groupBytes = (int64_t{channels} * bitsPerSample * kLxThumbnailFrames) / 8;
    int groups = groupBytes > 0 && pcmBytes > 0 ? static_cast<int>(pcmBytes / groupBytes) : 0;
    std::vector<int16_t> thumbnail(static_cast<size_t>(groups) * 2, 0);
    int samples = std::max(pcmBytes, 0) / 2;
    // A group covers the kLxThumbnailFrames samples (mono) or frames (stereo) of it that the PCM
    // really holds; groups past the end stay {0, 0}.
    if (channels == 1) {
        for (int g = 0; g < groups && kLxThumbnailFrames * g < samples; ++g) {
            int16_t lo[1], hi[1];
            GroupMinMax<1>(bytes + 2 * kLxThumbnailFrames * g, std::min(kLxThumbnailFrames, samples - kLxThumbnailFrames * g), lo, hi);
            thumbnail[2 * g] = lo[0];
            thumbnail[2 * g + 1] = hi[0];
        }
    } else if (channels == 2) {
        const int frames = samples / 2;
        for (int g = 0; g < groups && kLxThumbnailFrames * g < frames; ++g) {
            int16_t lo[2], hi[2];
            GroupMinMax<2>(bytes + 4 * kLxThumbnailFrames * g, 2 * std::min(kLxThumbnailFrames, frames - kLxThumbnailFrames * g), lo, hi);
            thumbnail[2 * g] = static_cast<int16_t>((lo[0] + lo[1]) / 2);
            thumbnail[2 * g + 1] = static_cast<int16_t>((hi[0] + hi[1]) / 2);
        }
    } else {
        LxAssertFailed("Yet to implement!", kSourceFile, __LINE__);
    }
    std::vector<unsigned char> thumbBytes(thumbnail.size() * 2);
    for (size_t i = 0; i < thumbnail.size(); ++i) {
        auto v = static_cast<uint16_t>(thumbnail[i]);
        thumbBytes[2 * i] = static_cast<unsigned char>(v);
        thumbBytes[2 * i + 1] = static_cast<unsigned char>(v >> 8);
    }
    // A page goes in whole or not at all: every member it writes to must have
    // room for its part before the first byte is written.
    const bool silent = pcmBytes < 1 || IsAllZero(bytes, pcmBytes);
    if (!encStream->CheckRoomFor(static_cast<int64_t>(thumbBytes.size())) ||
        (!silent && !rawStream->CheckRoomFor(pcmBytes)) || !CheckRoomFor(kLxPageRecordBytes)) {
        return;
    }
    LxRange thumbRange = encStream->Append(thumbBytes.data(), static_cast<int>(thumbBytes.size()));

    // An all-zero page stores no data; its thumbnail stays behind unused until compaction.
    if (silent) {
        AppendSilentPage(pcmBytes, channels, sampleRate, bitsPerSample, pageID);
        return;
    }
    LxPCMData record = MakeRecord(kLxPageCodecRaw, pcmBytes, channels, sampleRate, bitsPerSample);
    record.dataRange = rawStream->Append(bytes, pcmBytes);
    record.thumbnailRange = thumbRange;
    pageID = AppendRecord(record);
}

void LxPCMDataStream::AppendSilentPage(int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID) {
    pageID = -1;
    if (!stream || !CheckRoomFor(kLxPageRecordBytes)) return;
    pageID = AppendRecord(MakeRecord(kLxPageCodecSilent, pcmBytes, channels, sampleRate, bitsPerSample));
}

LxPCMData LxPCMDataStream::MakeRecord(int codec, int pcmBytes, int channels, int sampleRate, int bitsPerSample) {
    LxPCMData record;
    record.codec = codec;
    record.pcmBytes = pcmBytes;
    record.channels = channels;
    record.sampleRate = sampleRate;
    record.bitsPerSample = bitsPerSample;
    return record;
}

int LxPCMDataStream::AppendRecord(const LxPCMData& record) {
    stream->Seek(0, kLxSeekEnd);
    const int pageID = static_cast<int>(stream->GetPosition());
    WritePageHeader(record);
    return pageID;
}

bool LxPCMDataStream::ReadPageHeader(int pageID, LxPCMData& record) {
    record = LxPCMData();
    if (!stream || pageID < 0) return false;
    const bool aligned = pageID % kLxPageRecordBytes == 0;
    const size_t index = static_cast<size_t>(pageID / kLxPageRecordBytes);
    if (aligned && KnownRecordsValid() && index < knownRecords.size() && knownRecords[index].known) {
        record = knownRecords[index].record;
        return true;
    }
    if (!stream->Seek(pageID, kLxSeekBegin)) return false;
    stream->SetWriting(false);
    int32_t fields[9];
    for (int32_t& field : fields) {
        if (!stream->Xfer(field)) {
            record = LxPCMData();
            return false;
        }
    }
    record.codec = fields[0];
    record.pcmBytes = fields[1];
    record.dataRange = {fields[2], fields[3]};
    record.thumbnailRange = {fields[4], fields[5]};
    record.channels = fields[6];
    record.sampleRate = fields[7];
    record.bitsPerSample = fields[8];
    // Every reader multiplies these two fields into byte counts: a damaged
    // record with absurd values is refused here rather than overflowing there.
    // It is not remembered, so each reader meets the refusal.
    if (!IsReadable(record)) {
        LxAssertFailed("invalid page record", kSourceFile, __LINE__);
        record = LxPCMData();
        return false;
    }
    if (aligned && KnownRecordsValid()) RememberRecord(pageID, record);
    return true;
}

void LxPCMDataStream::WritePageHeader(const LxPCMData& record) {
    if (!stream) return;
    const int64_t position = stream->GetPosition();
    stream->SetWriting(true);
    int32_t fields[9] = {record.codec,          record.pcmBytes,         record.dataRange.start,
                         record.dataRange.end,  record.thumbnailRange.start, record.thumbnailRange.end,
                         record.channels,       record.sampleRate,       record.bitsPerSample};
    bool complete = true;
    for (int32_t& field : fields) complete = stream->Xfer(field) && complete;
    // Remembered only when the whole record went out at a record position and
    // reading it back would accept it; otherwise whatever it overlapped is
    // read from the file again (a "pcm.lxa" whose length is not a whole number
    // of records puts the next record across two).
    if (complete && position >= 0 && position % kLxPageRecordBytes == 0 && IsReadable(record) && KnownRecordsValid()) {
        RememberRecord(position, record);
        return;
    }
    const int64_t last = (position + kLxPageRecordBytes - 1) / kLxPageRecordBytes;
    for (int64_t index = position / kLxPageRecordBytes; index <= last; ++index) {
        if (index >= 0 && index < static_cast<int64_t>(knownRecords.size())) {
            knownRecords[static_cast<size_t>(index)].known = false;
        }
    }
}

bool LxPCMDataStream::IsReadable(const LxPCMData& record) {
    return record.channels >= 0 && record.channels <= kMaxChannels && record.bitsPerSample >= 0 &&
           record.bitsPerSample <= kMaxBitsPerSample;
}

bool LxPCMDataStream::KnownRecordsValid() {
    const int64_t failures = stream ? stream->GetReadFailures() + stream->GetWriteFailures() : 0;
    if (failures == knownFailures) return true;
    // What the file holds may now differ from what was written or read before.
    ForgetRecords();
    knownFailures = failures;
    return false;
}

void LxPCMDataStream::ForgetRecords() { knownRecords.clear(); }

void LxPCMDataStream::RememberRecord(int64_t position, const LxPCMData& record) {
    const auto index = static_cast<size_t>(position / kLxPageRecordBytes);
    if (index >= kMaxKnownRecords) return;
    if (index >= knownRecords.size()) knownRecords.resize(index + 1);
    knownRecords[index].record = record;
    knownRecords[index].known = true;
}

void LxPCMDataStream::ContentsReplaced() {
    ForgetRecords();
    knownFailures = stream ? stream->GetReadFailures() + stream->GetWriteFailures() : 0;
}

void LxPCMDataStream::ReadPageData(const LxPCMData& record, int wantedChannels, void* buffer, int bufferBytes,
                                   int& bytesRead) {
    if (!stream) return;
    auto* out = static_cast<unsigned char*>(buffer);
    int allowed;
    if (record.channels == wantedChannels) {
        allowed = bufferBytes;
    } else if (wantedChannels == 2 && record.channels == 1) {
        allowed = bufferBytes / 2;  // room for doubling
    } else if (wantedChannels == 1 && record.channels == 2) {
        allowed = bufferBytes;
    } else {
        LxAssertFailed("Not supported format!", kSourceFile, __LINE__);
        return;
    }
    // A damaged record may claim more than a page, or a negative length.
    if (record.pcmBytes < 0 || record.pcmBytes > kLxMaxPageBytes) {
        LxAssertFailed("invalid page record", kSourceFile, __LINE__);
    }
    int n = std::clamp(std::min(record.pcmBytes, allowed), 0, std::max(bufferBytes, 0));
    switch (record.codec) {
        case kLxPageCodecRaw:
            bytesRead = rawStream->Read(record.dataRange, out, std::min(n, std::max(record.dataRange.Size(), 0)));
            break;
        case kLxPageCodecVorbis: {
            LxCodec* codec = GetCodec(record.channels);
            if (codec == nullptr) {
                LxAssertFailed("Unknown format!", kSourceFile, __LINE__);
                std::memset(out, 1, static_cast<size_t>(n));
                bytesRead = n;
                break;
            }
            int stored = std::clamp(record.dataRange.Size(), 0, kLxMaxPageBytes);
            int got = encStream->Read(record.dataRange, pageBuffer.data(), stored);
            bytesRead = codec->Decode(pageBuffer.data(), got, reinterpret_cast<short*>(out), n);
            bytesRead = std::clamp(bytesRead, 0, n);
            break;
        }
        case kLxPageCodecSilent:
            std::memset(out, 0, static_cast<size_t>(n));
            bytesRead = n;
            break;
        default:
            // Audible as near-silence: marks a damaged page.
            LxAssertFailed("Unknown Codec", kSourceFile, __LINE__);
            std::memset(out, 2, static_cast<size_t>(n));
            bytesRead = n;
            return;
    }
    if (record.channels != wantedChannels && LxPCMConverter::CanConvert(record.channels, wantedChannels)) {
        bytesRead = LxPCMConverter::ConvertInPlace(out, bytesRead, record.channels, wantedChannels);
    } else if (record.channels != wantedChannels) {
        LxAssertFailed("Should have asserted long back!! Format Not Supported!", kSourceFile, __LINE__);
    }
}

void LxPCMDataStream::ReadPageThumbnail(int pageID, void* buffer, int bufferBytes, int& bytesRead) {
    LxPCMData record;
    if (!ReadPageHeader(pageID, record)) return;
    if (record.codec == kLxPageCodecRaw || record.codec == kLxPageCodecVorbis) {
        int n = std::clamp(std::min(record.thumbnailRange.Size(), bufferBytes), 0, std::max(bufferBytes, 0));
        bytesRead = encStream->Read(record.thumbnailRange, buffer, n);
    } else if (record.codec == kLxPageCodecSilent) {
        std::memset(buffer, 0, static_cast<size_t>(std::max(bufferBytes, 0)));
        bytesRead = std::max(bufferBytes, 0);
    }
}

void LxPCMDataStream::CopyPageTo(int pageID, LxPCMDataStream& target, int& newPageID) {
    newPageID = -1;
    LxPCMData record;
    if (!ReadPageHeader(pageID, record)) return;
    bool hasData = record.codec == kLxPageCodecRaw || record.codec == kLxPageCodecVorbis;
    if (hasData) {
        LxDataStream* from = record.codec == kLxPageCodecRaw ? rawStream : encStream;
        LxDataStream* to = record.codec == kLxPageCodecRaw ? target.rawStream : target.encStream;
        int n = std::clamp(record.dataRange.Size(), 0, kLxMaxPageBytes);
        int thumbBytes = std::clamp(record.thumbnailRange.Size(), 0, FullThumbnailBytes(record.channels));
        // Data and thumbnail may go into the same member: room for both, checked
        // before anything of the page is written.
        const int64_t intoEnc = thumbBytes + (to == target.encStream ? n : 0);
        if (target.stream && ((to == target.rawStream && !to->CheckRoomFor(n)) ||
                              !target.encStream->CheckRoomFor(intoEnc) || !target.CheckRoomFor(kLxPageRecordBytes))) {
            return;
        }
        int got = from->Read(record.dataRange, pageBuffer.data(), n);
        record.dataRange = to->Append(pageBuffer.data(), got);
        got = encStream->Read(record.thumbnailRange, pageBuffer.data(), thumbBytes);
        record.thumbnailRange = target.encStream->Append(pageBuffer.data(), got);
    } else if (record.codec != kLxPageCodecSilent) {
        LxAssertFailed("", kSourceFile, __LINE__);
    }
    if (!target.stream || (!hasData && !target.CheckRoomFor(kLxPageRecordBytes))) return;
    newPageID = target.AppendRecord(record);
}
