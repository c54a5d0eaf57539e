#include "LxAudioClip.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include "LxAudioConstants.h"
#include "LxAudioFile.h"
#include "LxClipRecord.h"
#include "LxPCMConverter.h"
#include "LxPublic/ILxReadWriteStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioClip";

LxAudioClip::LxAudioClip(LxAudioFile& file, int clipID, LX_AUDIO_CLIP_SOURCE source)
    : LxAudioClipBase(file, -1), clipSource(source) {
    if (clipID != -1) ReadFromAudioFile(clipID);
}

LxAudioClip::LxAudioClip(const LxAudioClip& other)
    : LxAudioClipBase(other), ILxAudioPlaybackClip(), clipSource(other.clipSource), lostAudio(other.lostAudio) {}

LxAudioClip& LxAudioClip::operator=(const LxAudioClip& other) {
    if (this == &other) return *this;
    LxAudioClipBase::operator=(other);
    clipSource = other.clipSource;
    lostAudio = other.lostAudio;
    thumbnail.Clear();
    ResetCursor();
    pendingBytes = 0;
    return *this;
}

LxAudioClip::~LxAudioClip() = default;

void LxAudioClip::ResetCursor() {
    currentRangeIndex = -1;
    currentPage = -1;
    pageSpan = {};
    portionStart = {};
    portionEnd = {};
    position = -1;
    endFrame = -1;
    fetchSpan = {};
}

void LxAudioClip::EnsureBuffer() {
    // Allocated once, on first use, and reused by every append and read after.
    if (buffer.empty()) buffer.resize(kPageBytes);
    if (!converter) converter = std::make_unique<LxPCMConverter>();
}

void LxAudioClip::ReadFromStream(ILxReadWriteStream& stream) {
    LxAudioClipBase::ReadFromStream(stream);
    // The stored source is read past; a clip keeps the source it was made with
    // (a clip loaded by ID counts as made by the library).
    int32_t stored = 0;
    stream.Xfer(stored);
    thumbnail.Clear();
    SeekToBeginning();
}

void LxAudioClip::WriteToStream(ILxReadWriteStream& stream) {
    LxAudioClipBase::WriteToStream(stream);
    int32_t source = clipSource;
    stream.Xfer(source);
}

// --- appending -------------------------------------------------------------------

void LxAudioClip::AppendPCMData(const unsigned char* data, int byteLength, int channels, int sampleRate,
                                int bitsPerSample, float volume) {
    if (byteLength < 1 || data == nullptr) return;
    EnsureBuffer();
    int done = 0;
    while (done < byteLength) {
        if (pendingBytes == kPageBytes) {
            PushDataToPCMStream(channels, sampleRate, bitsPerSample, volume);
            pendingBytes = 0;
        }
        int n = std::min(byteLength - done, kPageBytes - pendingBytes);
        std::memcpy(buffer.data() + pendingBytes, data + done, static_cast<size_t>(n));
        pendingBytes += n;
        done += n;
    }
}

void LxAudioClip::PushDataToPCMStream(int channels, int sampleRate, int bitsPerSample, float volume) {
    EnsureBuffer();
    LxRecursiveLock lock(audioFile->GetLock());
    int page = -1;
    audioFile->AppendPage(buffer.data(), pendingBytes, channels, sampleRate, bitsPerSample, page);
    if (page == -1) {
        LxAssertFailed("", kSourceFile, __LINE__);
        page = 0;
        lostAudio = true;
    }
    LxAudioVolumeEffect effect(volume, 0.0f, 1.0f);
    if (!pageRanges.empty()) {
        LxPageRange& last = pageRanges.back();
        // A full page followed by the next record continues the same range.
        if (last.endPage == page - kLxPageRecordBytes && last.endOffset == kPageBytes) {
            last.endPage = page;
            last.endOffset = pendingBytes;
            return;
        }
    }
    pageRanges.emplace_back(audioFile, effect, page, 0, page, pendingBytes);
}

void LxAudioClip::FlushPendingPCMData(int channels, int sampleRate, int bitsPerSample, float volume) {
    if (pendingBytes > 0) PushDataToPCMStream(channels, sampleRate, bitsPerSample, volume);
    pendingBytes = 0;
}

int LxAudioClip::FinishAppendingPCMData(int channels, int sampleRate, int bitsPerSample, float volume) {
    // Whole frames only: 180 bytes is a whole number of frames for every format.
    pendingBytes = (pendingBytes / kLxWholeFrameBlockBytes) * kLxWholeFrameBlockBytes;
    if (pendingBytes > 0) PushDataToPCMStream(channels, sampleRate, bitsPerSample, volume);
    pendingBytes = 0;
    // A clip short of audio the store refused is not stored as if it were whole.
    if (pageRanges.empty() || lostAudio) return -1;
    return audioFile->WriteClip(*this);
}

void LxAudioClip::AppendPCMDataFromAClipInsideAnotherAudioFile(LxAudioClip& other) {
    if (pendingBytes != 0) LxAssertFailed("", kSourceFile, __LINE__);
    for (const LxPageRange& range : other.GetPageRanges()) {
        LxPageRange copied;
        if (range.startPage < 0 || range.endPage < range.startPage) LxAssertFailed("", kSourceFile, __LINE__);
        if (LxClipRecord::CopyRange(range, *audioFile, copied)) {
            pageRanges.push_back(copied);
        } else {
            lostAudio = true;
        }
    }
}

bool LxAudioClip::IsRawDataSameAs(ILxStream* stream) {
    if (stream == nullptr || !stream->IsOpen()) return false;
    stream->Seek(0, kLxSeekEnd);
    int64_t length = stream->GetPosition();
    stream->Seek(0, kLxSeekBegin);
    if (length == 0 || length != WorthInBytes()) return false;
    SeekToBeginning();
    std::vector<unsigned char> expected(kPageBytes), actual(kPageBytes);
    while (!stream->IsEndOfStream()) {
        int32_t n = 0, unused = 0;
        if (!stream->ReadInt32(n)) return true;
        if (n > kPageBytes || n < 0) return false;
        if (n == 0) return true;
        for (int i = 0; i < 3; ++i) stream->ReadInt32(unused);
        int got = stream->Read(expected.data(), n);
        int pulled = 0;
        GetNextPCMData(0, actual.data(), n, pulled, nullptr, false);
        int compared = std::min(got, pulled);
        if (std::memcmp(expected.data(), actual.data(), static_cast<size_t>(compared)) != 0) return false;
    }
    return true;
}

// --- reading ---------------------------------------------------------------------

void LxAudioClip::MoveCursorTo(int rangeIndex, int page, int offset) {
    const LxPageRange& range = pageRanges[static_cast<size_t>(rangeIndex)];
    currentRangeIndex = rangeIndex;
    currentPage = page;
    pageSpan.start = offset;
    pageSpan.end = page == range.endPage ? range.endOffset : kPageBytes;
}

void LxAudioClip::SetPortionToBePlayedBack(int startFrame, int endFrameArg) {
    if (endFrameArg != -1 && startFrame > endFrameArg) return;
    LxPageTranslation start = Translate(startFrame);
    if (!start.IsValid()) return;
    portionStart = start;
    MoveCursorTo(start.rangeIndex, start.page, start.pageOffset);
    fetchSpan = {};
    portionEnd = {};
    if (pageSpan.start == kPageBytes) {
        // Just past a full page: nothing to read here.
        LxAssertFailed("", kSourceFile, __LINE__);
        AdvanceTheCurrentPage();
    }
    if (endFrameArg == -1) {
        endFrame = WorthInFrames();
    } else {
        portionEnd = Translate(endFrameArg);
        endFrame = endFrameArg;
        if (portionEnd.rangeIndex == currentRangeIndex && portionEnd.page == currentPage) {
            pageSpan.end = portionEnd.pageOffset;
        }
    }
    pendingBytes = 0;
    fetchSpan = {};
    position = startFrame;
}

void LxAudioClip::SeekToBeginning() {
    pendingBytes = 0;
    fetchSpan = {};
    position = 1;
    endFrame = WorthInFrames();
    if (pageRanges.empty()) {
        currentRangeIndex = -1;
        currentPage = -1;
        pageSpan = {};
        return;
    }
    // Ranges that name pages the store does not have (a damaged record) are
    // passed over, here and when the cursor moves on.
    int first = FirstValidRangeFrom(0);
    if (first < 0) {
        currentRangeIndex = -1;
        currentPage = -1;
        pageSpan = {};
        return;
    }
    MoveCursorTo(first, pageRanges[static_cast<size_t>(first)].startPage,
                 pageRanges[static_cast<size_t>(first)].startOffset);
    // An end set by an earlier portion stays in force.
    if (portionEnd.IsValid() && portionEnd.rangeIndex == first && portionEnd.page == currentPage) {
        pageSpan.end = portionEnd.pageOffset;
    }
}

void LxAudioClip::AdvanceTheCurrentPage() {
    fetchSpan = {};
    if (currentPage != -1) {
        // The current page has been handed out (or skipped): move on to the
        // next page that has bytes to read.
        pageSpan = {};
        while (currentRangeIndex != -1 && pageSpan.IsEmpty()) {
            const LxPageRange& range = pageRanges[static_cast<size_t>(currentRangeIndex)];
            if (currentPage >= range.endPage) {
                int next = FirstValidRangeFrom(currentRangeIndex + 1);
                if (next < 0) {
                    currentRangeIndex = -1;
                    currentPage = -1;
                    break;
                }
                currentRangeIndex = next;
                currentPage = pageRanges[static_cast<size_t>(next)].startPage;
            } else {
                currentPage += kLxPageRecordBytes;
            }
            const LxPageRange& now = pageRanges[static_cast<size_t>(currentRangeIndex)];
            pageSpan.start = currentPage == now.startPage ? now.startOffset : 0;
            pageSpan.end = currentPage == now.endPage ? now.endOffset : kPageBytes;
        }
    }
    if (currentRangeIndex != -1 && portionEnd.IsValid()) {
        if (currentRangeIndex > portionEnd.rangeIndex ||
            (currentRangeIndex == portionEnd.rangeIndex && currentPage > portionEnd.page)) {
            currentRangeIndex = -1;
            currentPage = -1;
            pageSpan = {};
        } else if (currentRangeIndex == portionEnd.rangeIndex && currentPage == portionEnd.page) {
            pageSpan.end = portionEnd.pageOffset;
        }
    }
}

int LxAudioClip::FirstValidRangeFrom(int index) const {
    for (int i = std::max(index, 0); i < static_cast<int>(pageRanges.size()); ++i) {
        if (pageRanges[static_cast<size_t>(i)].IsValid()) return i;
    }
    return -1;
}

void LxAudioClip::GetNextPCMData(int channels, unsigned char* out, int outCapacity, int& bytesWritten,
                                 LxPCMData* info, bool mix) {
    bytesWritten = 0;
    // A page with nothing to hand out (the end of a portion, a damaged page) is
    // passed over, so that no bytes means the end of the audio.
    for (int attempt = 0; attempt < 64 && currentPage != -1; ++attempt) {
        FetchAndCopy(channels, out, outCapacity, bytesWritten, info, mix);
        if (bytesWritten > 0) break;
    }
}

void LxAudioClip::FetchAndCopy(int channels, unsigned char* out, int outCapacity, int& bytesWritten, LxPCMData* info,
                               bool mix) {
    bytesWritten = 0;
    if (fetchSpan.IsEmpty()) {
        if (currentPage == -1 || currentRangeIndex == -1) return;
        EnsureBuffer();
        // The page comes as stored; it is converted only as its bytes are handed out.
        LxPCMData record;
        int got = 0;
        const bool read = audioFile->ReadPage(currentPage, record, buffer.data(), kPageBytes, got);
        if (info) *info = record;
        int wanted = channels == 0 ? record.channels : channels;
        fetchChannels = wanted;
        fetchStoredChannels = record.channels;
        if (!read || !LxPCMConverter::CanConvert(record.channels, wanted)) {
            // A page the converter does not take (an unreadable record, a format
            // other than mono or stereo) goes the general way, which reports it
            // and hands out what it can as it is.
            got = 0;
            audioFile->ReadPageData(record, wanted, buffer.data(), kPageBytes, got);
            fetchStoredChannels = wanted;
        }
        // Offsets in the bytes handed out, that is, after conversion.
        fetchSpan = {LxPCMConverter::ConvertedOffset(pageSpan.start, record.channels, wanted),
                     LxPCMConverter::ConvertedOffset(pageSpan.end, record.channels, wanted)};
        // A damaged page may deliver fewer bytes than its record promises, and a
        // damaged range may name offsets outside the page.
        const int converted = LxPCMConverter::ConvertedBytes(std::max(got, 0), fetchStoredChannels, wanted);
        fetchSpan.end = std::min(fetchSpan.end, converted);
        fetchSpan.start = std::clamp(fetchSpan.start, 0, std::max(fetchSpan.end, 0));
        pageSpan = {};
    }
    if (out != nullptr && outCapacity > 0 && !fetchSpan.IsEmpty()) {
        int n = std::min(fetchSpan.Size(), outCapacity);
        // The cursor moves on only once the fetched page is used up, so it still
        // names the range whose effect applies.
        const LxAudioVolumeEffect* effect =
            currentRangeIndex >= 0 && currentRangeIndex < static_cast<int>(pageRanges.size())
                ? &pageRanges[static_cast<size_t>(currentRangeIndex)].effect
                : nullptr;
        converter->HandOut(buffer.data(), fetchStoredChannels, fetchChannels, fetchSpan.start, n, effect, mix, out);
        bytesWritten = n;
        fetchSpan.start += n;
    }
    if (fetchSpan.IsEmpty()) AdvanceTheCurrentPage();
    int frameBytes = (channels == 0 ? fetchChannels : channels) * 2;
    if (frameBytes > 0) position += bytesWritten / frameBytes;
}

// --- thumbnails ------------------------------------------------------------------

void LxAudioClip::LoadThumbnail() {
    thumbnail.Clear();
    portionStart = {};
    portionEnd = {};
    SeekToBeginning();
    while (currentPage != -1) {
        LxPageThumbnail* piece = nullptr;
        {
            LxRecursiveLock lock(audioFile->GetLock());
            piece = audioFile->GetPageThumbnail(currentPage);
        }
        if (piece != nullptr && piece->channels > 0) {
            // Points cover 90 frames; the byte span of the page maps onto the
            // thumbnail's bytes, each end rounded down to 2 frames' worth of
            // thumbnail bytes (one point for mono, two for stereo).
            float scale = 2.0f / static_cast<float>(piece->channels * kLxThumbnailFrames);
            int frameBytes = (piece->bitsPerSample * piece->channels) / 8;
            int step = 2 * frameBytes;
            int lo = static_cast<int>(static_cast<float>(pageSpan.start) * scale);
            int hi = static_cast<int>(static_cast<float>(pageSpan.end) * scale);
            if (step > 0) {
                lo -= lo % step;
                hi -= hi % step;
            }
            // Never past the points the page really has.
            hi = std::min(hi, piece->NumberOfPoints() * 4);
            if (hi > lo) {
                int points = (hi - lo) / 4;
                if (points > 0) {
                    thumbnail.AppendSegment(*audioFile, currentPage, lo / 4, points);
                } else {
                    LxAssertFailed("empty thumb piece", kSourceFile, __LINE__);
                }
            }
        }
        AdvanceTheCurrentPage();
    }
    {
        LxRecursiveLock lock(audioFile->GetLock());
        audioFile->ReleaseUnusedThumbnails();
    }
    thumbnail.SetLoaded(true);
}

int LxAudioClip::GetNthFrameInThumbnail(int n) {
    if (!thumbnail.IsLoaded()) return 0;
    return static_cast<int>(thumbnail.GetPoint(n));
}

void LxAudioClip::GetAudioThumbnail(void** data, int* byteSize) {
    if (data == nullptr || byteSize == nullptr) return;
    int points = thumbnail.GetNumberOfPoints();
    *byteSize = points * 4;
    *data = std::malloc(static_cast<size_t>(std::max(points, 1)) * 4);
    if (*data != nullptr && points > 0) thumbnail.CopyPoints(static_cast<uint32_t*>(*data));
}

int LxAudioClip::ThumbnailWorthInFrames() const {
    int points = 0;
    for (const LxPageRange& range : pageRanges) points += range.WorthInFrames() / kLxThumbnailFrames;
    return points;
}

float LxAudioClip::GetBestVolume(int startFrame, int endFrameArg) {
    if (!thumbnail.IsLoaded()) {
        LxAssertFailed("thumbnail not loaded. Use LoadThumbnail()", kSourceFile, __LINE__);
        return 1.0f;
    }
    int first = startFrame / kLxThumbnailFrames;
    int last = endFrameArg / kLxThumbnailFrames;
    if (first > last) return 1.0f;
    float max = 0.0f, min = 0.0f;
    // Points outside the thumbnail read as 0 and change nothing.
    last = std::min(last, thumbnail.GetNumberOfPoints() - 1);
    for (int i = std::max(first, 0); i <= last; ++i) {
        uint32_t point = thumbnail.GetPoint(i);
        auto low = static_cast<int16_t>(static_cast<uint16_t>(point & 0xFFFFu));
        auto high = static_cast<int16_t>(static_cast<uint16_t>(point >> 16));
        max = std::max(max, static_cast<float>(high));
        min = std::min(min, static_cast<float>(low));
    }
    if (max == 0.0f && min == 0.0f) return 1.0f;
    if (max > -min) return 32767.0f / max;
    return -32768.0f / min;
}
