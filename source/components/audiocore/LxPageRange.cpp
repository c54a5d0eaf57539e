#include "LxPageRange.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>
#include "LxReportSites.h"
#include "LxAudioFile.h"
#include "LxPublic/ILxReadWriteStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxPageRange";

namespace {

// Bytes of one frame of the page; 0 for a format no page can have (a damaged
// record), which makes the page count as empty.
int BytesPerFrame(const LxPCMData& record) {
    const int64_t bytes = (static_cast<int64_t>(record.channels) * record.bitsPerSample) / 8;
    return bytes > 0 && bytes <= 64 ? static_cast<int>(bytes) : 0;
}

// Frames of page `page` that the range covers, from its header.
int FramesOnPage(const LxPageRange& range, int page, const LxPCMData& record) {
    int bpf = BytesPerFrame(record);
    if (bpf <= 0) return 0;
    if (range.startPage == range.endPage) return (range.endOffset - range.startOffset) / bpf;
    if (page == range.startPage) return (record.pcmBytes - range.startOffset) / bpf;
    if (page == range.endPage) return range.endOffset / bpf;
    return record.pcmBytes / bpf;
}

bool IsSpanSilent(const unsigned char* bytes, int from, int to) {
    for (int i = std::max(from, 0); i < to; ++i) {
        if (bytes[i] != 0) return false;
    }
    return true;
}

}  // namespace

bool LxPageRange::IsValid() const { return Check(); }

bool LxPageRange::KeptIsCurrent() const {
    return kept.valid && kept.startPage == startPage && kept.startOffset == startOffset &&
           kept.endPage == endPage && kept.endOffset == endOffset && audioFile != nullptr &&
           kept.pageEpoch == audioFile->GetPageEpoch();
}

bool LxPageRange::CheckAgainstRecords() const {
    if (audioFile == nullptr) {
        LxAssertFailed("NULL Audio File", kSourceFile, __LINE__);
        return false;
    }
    if (startPage > endPage || startPage < 0 || startOffset < 0 || endOffset < 0) {
        LxAssertFailed("invalid range", kSourceFile, __LINE__);  // order
        return false;
    }
    LxPCMData record;
    if (startPage == endPage) {
        if (endOffset < startOffset) {
            LxAssertFailed("invalid range", kSourceFile, __LINE__);  // offsets
            return false;
        }
        // A page beyond the store (a damaged record) reads as zero bytes long.
        audioFile->ReadPageHeader(startPage, record);
        if (record.pcmBytes < endOffset) {
            LxAssertFailed("invalid range", kSourceFile, __LINE__);  // one page
            return false;
        }
        return true;
    }
    audioFile->ReadPageHeader(startPage, record);
    if (record.pcmBytes < startOffset) {
        LxAssertFailed("invalid range", kSourceFile, __LINE__);  // start page
        return false;
    }
    // The end page must exist, or walking the range would run far past the store.
    if (!audioFile->ReadPageHeader(endPage, record) || record.pcmBytes < endOffset) {
        LxAssertFailed("invalid range", kSourceFile, __LINE__);  // end page
        return false;
    }
    return true;
}

bool LxPageRange::Check() const {
    if (KeptIsCurrent()) return true;
    kept.valid = false;
    if (audioFile == nullptr) return CheckAgainstRecords();
    // One pass over the page records, all under one hold of the store's lock.
    LxRecursiveLock guard(audioFile->GetLock());
    if (!CheckAgainstRecords()) return false;
    Kept found;
    found.pageEpoch = audioFile->GetPageEpoch();
    found.startPage = startPage;
    found.startOffset = startOffset;
    found.endPage = endPage;
    found.endOffset = endOffset;
    found.uniform = true;
    bool channelsKnown = false, stereoSeen = false, recordsReadable = true;
    LxPCMData record;
    for (int page = startPage; page <= endPage; page += kLxPageRecordBytes) {
        const bool readable = audioFile->ReadPageHeader(page, record);
        // The widest page counts up to the first record that cannot be read.
        recordsReadable = recordsReadable && readable;
        if (recordsReadable && record.channels == 2) stereoSeen = true;
        if (!channelsKnown) {
            found.channels = static_cast<int8_t>(readable && record.channels >= 1 ? record.channels : 1);
            channelsKnown = true;
        }
        found.frames += FramesOnPage(*this, page, record);
        if (startPage == endPage) {
            found.bytes = endOffset - startOffset;
        } else if (page == startPage) {
            found.bytes += record.pcmBytes - startOffset;
        } else if (page == endPage) {
            found.bytes += endOffset;
        } else {
            found.bytes += record.pcmBytes;
        }
        const int bpf = BytesPerFrame(record);
        if (page == startPage) {
            found.bytesPerFrame = static_cast<int8_t>(bpf);
            found.firstPageBytes = record.pcmBytes;
        } else if (bpf != found.bytesPerFrame) {
            found.uniform = false;
        }
        if (page != startPage && page != endPage) {
            if (page == startPage + kLxPageRecordBytes) {
                found.middlePageBytes = record.pcmBytes;
            } else if (record.pcmBytes != found.middlePageBytes) {
                found.uniform = false;
            }
        }
    }
    found.maxChannels = stereoSeen ? 2 : 1;
    const bool hasMiddle = endPage - startPage > kLxPageRecordBytes;
    if (found.bytesPerFrame <= 0 || (hasMiddle && found.middlePageBytes / found.bytesPerFrame <= 0)) {
        found.uniform = false;
    }
    // The answers serve the question being asked; a closed store answers every
    // question with nothing, so nothing found in it is kept for the next one.
    found.valid = audioFile->IsOpen();
    kept = found;
    return true;
}

int LxPageRange::WorthInFrames() const { return Check() ? kept.frames : 0; }

int LxPageRange::WorthInBytes() const { return Check() ? kept.bytes : 0; }

void LxPageRange::Translate(int frame, int& page, int& pageOffset) const {
    page = -1;
    pageOffset = -1;
    if (!Check()) return;
    if (frame <= 0) {
        LxAssertFailed("Non positive frame index in Translate", kSourceFile, __LINE__);
        return;
    }
    if (startPage == endPage) {
        // One page: its frame size was kept with the rest.
        const int bpf = kept.bytesPerFrame;
        if (bpf <= 0 || (endOffset - startOffset) / bpf < frame) return;
        page = startPage;
        pageOffset = (frame - 1) * bpf + startOffset;
        return;
    }
    if (kept.uniform) {
        const int bpf = kept.bytesPerFrame;
        const int firstFrames = (kept.firstPageBytes - startOffset) / bpf;
        if (frame <= firstFrames) {
            page = startPage;
            pageOffset = bpf * (frame - 1) + startOffset;
            return;
        }
        int rest = frame - firstFrames - 1;  // 0-based, past the first page
        const int middlePages = (endPage - startPage) / kLxPageRecordBytes - 1;
        if (middlePages > 0) {
            const int perPage = kept.middlePageBytes / bpf;
            const int64_t middleFrames = static_cast<int64_t>(perPage) * middlePages;
            if (rest < middleFrames) {
                page = startPage + kLxPageRecordBytes * (1 + rest / perPage);
                pageOffset = bpf * (rest % perPage);
                return;
            }
            rest -= static_cast<int>(middleFrames);
        }
        if (rest < endOffset / bpf) {
            page = endPage;
            pageOffset = bpf * rest;
        }
        return;
    }
    // Pages of differing lengths or formats: walked record by record.
    LxPCMData record;
    int cumulative = 0;
    for (int p = startPage; p <= endPage; p += kLxPageRecordBytes) {
        audioFile->ReadPageHeader(p, record);
        int frames = FramesOnPage(*this, p, record);
        if (cumulative + frames >= frame) {
            page = p;
            pageOffset = BytesPerFrame(record) * (frame - cumulative - 1) + (p == startPage ? startOffset : 0);
            return;
        }
        cumulative += frames;
    }
}

void LxPageRange::IncrementByOneFrame(int& page, int& pageOffset) const {
    if (!Check()) return;
    if (page < startPage || page > endPage) {
        LxAssertFailed("invalid arg", kSourceFile, __LINE__);
        return;
    }
    int bpf = 0, pageBytes = 0;
    if (kept.uniform) {
        bpf = kept.bytesPerFrame;
        pageBytes = page == startPage ? kept.firstPageBytes : kept.middlePageBytes;
    } else {
        LxPCMData record;
        audioFile->ReadPageHeader(page, record);
        bpf = BytesPerFrame(record);
        pageBytes = record.pcmBytes;
    }
    if (page == endPage) {
        if (pageOffset > endOffset - bpf) {
            LxAssertFailed("OVerflow. Can't increment pageOffset", kSourceFile, __LINE__);
            return;
        }
        pageOffset += bpf;
        return;
    }
    // Strictly greater: from the last frame the offset first reaches the page
    // length, and only the next step moves to the following page.
    if (pageOffset > pageBytes - bpf) {
        page += kLxPageRecordBytes;
        pageOffset = 0;
    } else {
        pageOffset += bpf;
    }
}

int LxPageRange::GetMaximumNumberOfChannels() const {
    return Check() ? kept.maxChannels : 1;
}

int LxPageRange::GetChannels() const {
    return Check() ? kept.channels : 1;
}

bool LxPageRange::IsSilent() const {
    if (audioFile == nullptr || !IsValid()) return false;
    LxPageRange silence = audioFile->GetSilenceRange();
    if (startPage >= silence.startPage && endPage <= silence.endPage && silence.startPage >= 0) return true;
    // Pages are read whole; a page of the silent codec needs no reading.
    static thread_local std::vector<unsigned char> buffer;
    buffer.resize(2 * kLxMaxPageBytes);
    LxPCMData record;
    for (int page = startPage; page <= endPage; page += kLxPageRecordBytes) {
        if (!audioFile->ReadPageHeader(page, record)) return false;
        if (record.codec == kLxPageCodecSilent) continue;
        int got = 0;
        audioFile->ReadPageData(record, record.channels, buffer.data(), static_cast<int>(buffer.size()), got);
        int from = page == startPage ? startOffset : 0;
        int to = page == endPage ? endOffset : got;
        if (!IsSpanSilent(buffer.data(), from, std::min(to, got))) return false;
    }
    return true;
}

void LxPageRange::Serialize(ILxReadWriteStream& stream) {
    int32_t fields[4] = {startPage, startOffset, endPage, endOffset};
    for (int32_t& field : fields) stream.Xfer(field);
    if (stream.IsWriting()) {
        int32_t count = 1, kind = LxAudioEffectVolume;
        stream.Xfer(count);
        stream.Xfer(kind);
        effect.XferData(stream);
        return;
    }
    startPage = fields[0];
    startOffset = fields[1];
    endPage = fields[2];
    endOffset = fields[3];
    int32_t count = 0;
    stream.Xfer(count);
    for (int32_t i = 0; i < count && !stream.IsEndOfStream(); ++i) {
        int32_t kind = 0;
        stream.Xfer(kind);
        if (kind == LxAudioEffectVolume) {
            effect.XferData(stream);
        } else {
            // Its data has an unknown size and is not read.
            LxAssertFailed("", kSourceFile, __LINE__);
        }
    }
}

void LxPageRange::AddEffect(const LxAudioEffect& other) {
    const auto* volume = dynamic_cast<const LxAudioVolumeEffect*>(&other);
    if (other.GetType() != LxAudioEffectVolume || volume == nullptr) {
        LxReportAt("", LxReportSites::kRangeEffectNotVolume);
        return;
    }
    effect.gain *= volume->gain;
    if (effect.threshold == 0.0f) {
        effect.threshold = volume->threshold;
        effect.ratio = volume->ratio;
    } else {
        effect.threshold = (effect.threshold + volume->threshold) * 0.5f;
        effect.ratio = (effect.ratio + volume->ratio) * 0.5f;
    }
}
