#include "LxAudioClipBase.h"

#include <algorithm>
#include <cstdint>
#include <vector>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioFile.h"
#include "LxClipRecord.h"
#include "LxPublic/ILxReadWriteStream.h"
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioClip";

namespace {

constexpr int kTrimBlock = kLxWholeFrameBlockBytes;

bool InsideSilence(const LxPageRange& range, const LxPageRange& silence) {
    return silence.startPage >= 0 && range.startPage >= silence.startPage && range.endPage <= silence.endPage;
}

// Reads a page whole, in its own channel count; returns the bytes read.
int ReadWholePage(LxAudioFile& file, const LxPCMData& record, std::vector<unsigned char>& buffer) {
    buffer.resize(2 * kLxMaxPageBytes);
    int got = 0;
    file.ReadPageData(record, record.channels, buffer.data(), static_cast<int>(buffer.size()), got);
    return std::clamp(got, 0, static_cast<int>(buffer.size()));
}

// Byte span [from, to) of a page that the range covers, within the bytes read.
void CoveredSpan(const LxPageRange& range, int page, int got, int& from, int& to) {
    from = std::max(page == range.startPage ? range.startOffset : 0, 0);
    to = std::min(page == range.endPage ? range.endOffset : got, got);
}

// The range without its leading silence: a new start on the first page with a
// non-zero byte, rounded down to a multiple of 180 bytes from the page start.
// A range that cannot be walked (it is invalid) is kept as it is.
LxPageRange CutLeadingSilence(const LxPageRange& range) {
    LxPageRange result = range;
    if (!range.IsValid()) return result;
    LxAudioFile& file = *range.GetAudioFile();
    if (!InsideSilence(range, file.GetSilenceRange())) {
        std::vector<unsigned char> buffer;
        for (int page = range.startPage; page <= range.endPage; page += kLxPageRecordBytes) {
            LxPCMData record;
            if (!file.ReadPageHeader(page, record)) break;
            if (record.codec == kLxPageCodecSilent) continue;
            int got = ReadWholePage(file, record, buffer);
            int from = 0, to = 0;
            CoveredSpan(range, page, got, from, to);
            for (int i = from; i < to; ++i) {
                if (buffer[static_cast<size_t>(i)] != 0) {
                    result.startPage = page;
                    result.startOffset = kTrimBlock * (i / kTrimBlock);
                    return result;
                }
            }
        }
    }
    result.startPage = result.endPage;
    result.startOffset = result.endOffset;
    return result;
}

// The mirror: a new end on the last page with a non-zero byte j, at
// 180 * floor((j + 179) / 180). A last sounding byte whose index is itself a
// multiple of 180 therefore falls just outside the new end.
LxPageRange CutTrailingSilence(const LxPageRange& range) {
    LxPageRange result = range;
    if (!range.IsValid()) return result;
    LxAudioFile& file = *range.GetAudioFile();
    if (!InsideSilence(range, file.GetSilenceRange())) {
        std::vector<unsigned char> buffer;
        for (int page = range.endPage; page >= range.startPage; page -= kLxPageRecordBytes) {
            LxPCMData record;
            if (!file.ReadPageHeader(page, record)) break;
            if (record.codec == kLxPageCodecSilent) continue;
            int got = ReadWholePage(file, record, buffer);
            int from = 0, to = 0;
            CoveredSpan(range, page, got, from, to);
            for (int j = to - 1; j >= from; --j) {
                if (buffer[static_cast<size_t>(j)] != 0) {
                    // Kept inside the page for page lengths that are not whole blocks.
                    result.endPage = page;
                    result.endOffset = std::min(kTrimBlock * ((j + kTrimBlock - 1) / kTrimBlock), record.pcmBytes);
                    return result;
                }
            }
        }
    }
    result.endPage = result.startPage;
    result.endOffset = result.startOffset;
    return result;
}

// Frame number from a time already multiplied out, truncated toward zero and
// at least 1. Values beyond the int range (or NaN) cannot name a frame of any
// clip and are clamped rather than converted.
int FrameFromProduct(float product) {
    if (!(product < 2147483648.0f)) return product > 0.0f ? 2147483647 : 1;  // also NaN
    if (product < 1.0f) return 1;
    return static_cast<int>(product);
}

// (deciSeconds * 44100) / 10, formed in 64 bits so that long silences do not
// overflow, and kept within the int range.
int DeciSecondsToFrames(int deciSeconds) {
    int64_t frames = (static_cast<int64_t>(deciSeconds) * kLxFrameRate) / 10;
    return static_cast<int>(std::clamp<int64_t>(frames, INT32_MIN, INT32_MAX));
}

}  // namespace

LxAudioClipBase::LxAudioClipBase(LxAudioFile& file, int clipID) : audioFile(&file) {
    if (clipID != -1) audioFile->ReadClip(clipID, *this);
}

LxAudioClipBase& LxAudioClipBase::operator=(const LxAudioClipBase& other) {
    if (this != &other) pageRanges = other.pageRanges;
    return *this;
}

LxAudioClipBase::~LxAudioClipBase() = default;

bool LxAudioClipBase::ReadFromAudioFile(int clipID) { return audioFile->ReadClip(clipID, *this); }

int LxAudioClipBase::WriteToAudioFile() { return audioFile->WriteClip(*this); }

void LxAudioClipBase::ReadFromStream(ILxReadWriteStream& stream) {
    LxClipRecord::ReadRanges(stream, audioFile, pageRanges);
}

void LxAudioClipBase::WriteToStream(ILxReadWriteStream& stream) { LxClipRecord::WriteRanges(stream, pageRanges); }

int LxAudioClipBase::WorthInBytes() const { return LxClipRecord::BytesOf(pageRanges); }

int LxAudioClipBase::WorthInFrames() const { return LxClipRecord::FramesOf(pageRanges); }

float LxAudioClipBase::WorthInSeconds() const { return static_cast<float>(WorthInFrames()) / kLxFrameRateF; }

int LxAudioClipBase::WorthInDeciSeconds() const {
    return static_cast<int>((static_cast<float>(WorthInFrames()) / kLxFrameRateF + 0.05f) * 10.0f);
}

bool LxAudioClipBase::IsSilent() const {
    return std::all_of(pageRanges.begin(), pageRanges.end(), [](const LxPageRange& r) { return r.IsSilent(); });
}

bool LxAudioClipBase::IsSameAs(const LxAudioClipBase& other) const { return pageRanges == other.pageRanges; }

int LxAudioClipBase::GetMaximumNumberOfChannels() const {
    for (const LxPageRange& range : pageRanges) {
        if (range.GetMaximumNumberOfChannels() == 2) return 2;
    }
    return 1;
}

int LxAudioClipBase::GetChannelsForExport() const { return pageRanges.empty() ? 1 : pageRanges.front().GetChannels(); }

// --- positions -------------------------------------------------------------------

LxPageTranslation LxAudioClipBase::Translate(int frame, const std::vector<LxPageRange>& ranges) {
    if (frame < 1) LxAssertFailed("", kSourceFile, __LINE__);
    LxPageTranslation result;
    if (ranges.empty()) return result;
    int cumulative = 0;
    for (size_t i = 0; i < ranges.size(); ++i) {
        int frames = ranges[i].WorthInFrames();
        if (cumulative + frames >= frame) {
            result.rangeIndex = static_cast<int>(i);
            ranges[i].Translate(frame - cumulative, result.page, result.pageOffset);
            return result;
        }
        cumulative += frames;
    }
    // Past the end: the position just after the clip's last frame.
    const LxPageRange& last = ranges.back();
    return {static_cast<int>(ranges.size()) - 1, last.endPage, last.endOffset};
}

LxPageTranslation LxAudioClipBase::TranslateTime(float seconds, const std::vector<LxPageRange>& ranges) {
    return Translate(FrameFromProduct(seconds * kLxFrameRateF), ranges);
}

LxPageTranslation LxAudioClipBase::TranslateTimeInDeciSeconds(int deciSeconds,
                                                              const std::vector<LxPageRange>& ranges) {
    int64_t frame = static_cast<int64_t>(deciSeconds) * 4410;
    return Translate(static_cast<int>(std::clamp<int64_t>(frame, 1, INT32_MAX)), ranges);
}

LxPageTranslation LxAudioClipBase::TranslateTimeInMilliSeconds(const int& milliSeconds,
                                                               const std::vector<LxPageRange>& ranges) {
    // Milliseconds are rounded to the nearest frame; seconds are truncated.
    return Translate(FrameFromProduct(static_cast<float>(milliSeconds) * 0.001f * kLxFrameRateF + 0.5f), ranges);
}

void LxAudioClipBase::IncrementTranslationByOneFrame(LxPageTranslation& translation,
                                                     const std::vector<LxPageRange>& ranges) {
    if (translation.rangeIndex < 0 || translation.rangeIndex >= static_cast<int>(ranges.size())) return;
    ranges[static_cast<size_t>(translation.rangeIndex)].IncrementByOneFrame(translation.page, translation.pageOffset);
}

bool LxAudioClipBase::isValidTranslationPair(const LxPageTranslation& from, const LxPageTranslation& to) {
    if (from.rangeIndex == -1 || to.rangeIndex == -1 || from.rangeIndex > to.rangeIndex) {
        LxReportAt("invalid translation", LxReportSites::kInvalidTranslation);
        return false;
    }
    if (from.rangeIndex == to.rangeIndex && from.page == to.page && from.pageOffset == to.pageOffset) {
        LxReportAt("empty range", LxReportSites::kEmptyRange);
        return false;
    }
    return true;
}

// --- list operations -------------------------------------------------------------

void LxAudioClipBase::AppendPageRange(const LxPageRange& range) { pageRanges.push_back(range); }

void LxAudioClipBase::AppendPageRanges(const std::vector<LxPageRange>& ranges) {
    pageRanges.insert(pageRanges.end(), ranges.begin(), ranges.end());
}

void LxAudioClipBase::AppendClip(const LxAudioClipBase& clip) {
    std::vector<LxPageRange> copy = clip.pageRanges;  // the clip may be this one
    AppendPageRanges(copy);
}

void LxAudioClipBase::PrependPageRange(const LxPageRange& range) { pageRanges.insert(pageRanges.begin(), range); }

void LxAudioClipBase::PrependPageRanges(const std::vector<LxPageRange>& ranges) {
    pageRanges.insert(pageRanges.begin(), ranges.begin(), ranges.end());
}

void LxAudioClipBase::PrependClip(const LxAudioClipBase& clip) {
    std::vector<LxPageRange> copy = clip.pageRanges;
    PrependPageRanges(copy);
}

void LxAudioClipBase::ReplaceWith(const LxAudioClipBase& clip) {
    if (this != &clip) pageRanges = clip.pageRanges;
}

std::vector<LxPageRange> LxAudioClipBase::MakeSilenceRanges(LxAudioFile& file, int frames) {
    std::vector<LxPageRange> made;
    LxPageRange silence = file.GetSilenceRange();
    int available = silence.WorthInFrames();
    if (available <= 0) return made;
    for (int remaining = frames; remaining > 0;) {
        int chunk = std::min(remaining, available);
        LxPageRange range = silence;
        int page = -1, offset = -1;
        silence.Translate(chunk, page, offset);
        silence.IncrementByOneFrame(page, offset);  // the end is exclusive
        range.endPage = page;
        range.endOffset = offset;
        made.push_back(range);
        remaining -= chunk;
    }
    return made;
}

void LxAudioClipBase::AppendSilenceFrames(int frames, int& framesAdded, bool) {
    framesAdded = 0;
    if (frames < 1) return;
    int before = WorthInFrames();
    AppendPageRanges(MakeSilenceRanges(*audioFile, frames));
    framesAdded = WorthInFrames() - before;
}

void LxAudioClipBase::PrependSilenceFrames(int frames, int& framesAdded, bool) {
    framesAdded = 0;
    if (frames < 1) return;
    int before = WorthInFrames();
    PrependPageRanges(MakeSilenceRanges(*audioFile, frames));
    framesAdded = WorthInFrames() - before;
}

void LxAudioClipBase::AppendDeciSecondsOfSilence(int deciSeconds, int& framesAdded, bool flag) {
    AppendSilenceFrames(DeciSecondsToFrames(deciSeconds), framesAdded, flag);
}

void LxAudioClipBase::PrependDeciSecondsOfSilence(int deciSeconds, int& framesAdded, bool flag) {
    PrependSilenceFrames(DeciSecondsToFrames(deciSeconds), framesAdded, flag);
}

// --- cutting ---------------------------------------------------------------------

std::unique_ptr<LxAudioClipBase> LxAudioClipBase::SubClip(const LxPageTranslation& from,
                                                          const LxPageTranslation& to) const {
    if (pageRanges.empty()) {
        LxAssertFailed("empty clip", kSourceFile, __LINE__);
        return nullptr;
    }
    if (!isValidTranslationPair(from, to)) return nullptr;
    if (from.rangeIndex < 0 || to.rangeIndex >= static_cast<int>(pageRanges.size())) {
        LxReportAt("invalid translation", LxReportSites::kInvalidTranslation);
        return nullptr;
    }
    auto clip = std::make_unique<LxAudioClipBase>(*audioFile, -1);
    const LxPageRange& first = pageRanges[static_cast<size_t>(from.rangeIndex)];
    if (from.rangeIndex == to.rangeIndex) {
        clip->AppendPageRange(LxPageRange(first.GetAudioFile(), first.effect, from.page, from.pageOffset, to.page,
                                          to.pageOffset));
        return clip;
    }
    if (!(from.page == first.endPage && from.pageOffset == first.endOffset)) {
        clip->AppendPageRange(LxPageRange(first.GetAudioFile(), first.effect, from.page, from.pageOffset,
                                          first.endPage, first.endOffset));
    }
    for (int i = from.rangeIndex + 1; i < to.rangeIndex; ++i) clip->AppendPageRange(pageRanges[static_cast<size_t>(i)]);
    const LxPageRange& last = pageRanges[static_cast<size_t>(to.rangeIndex)];
    if (!(to.page == last.startPage && to.pageOffset == last.startOffset)) {
        clip->AppendPageRange(
            LxPageRange(last.GetAudioFile(), last.effect, last.startPage, last.startOffset, to.page, to.pageOffset));
    }
    return clip;
}

std::unique_ptr<LxAudioClipBase> LxAudioClipBase::SubClip(const int& fromMs, const int& toMs) const {
    auto frameOf = [](int ms) { return FrameFromProduct(static_cast<float>(ms) * 0.001f * kLxFrameRateF + 0.5f); };
    LxPageTranslation from = Translate(frameOf(fromMs));
    LxPageTranslation to = Translate(frameOf(toMs));
    return SubClip(from, to);
}

std::unique_ptr<LxAudioClipBase> LxAudioClipBase::TrimSilence(float& leadingTrimmed) const {
    leadingTrimmed = 0.0f;
    auto clip = std::make_unique<LxAudioClipBase>(*audioFile, -1);
    size_t leading = 0;
    int leadingFrames = 0;
    while (leading < pageRanges.size() && pageRanges[leading].IsSilent()) {
        leadingFrames += pageRanges[leading].WorthInFrames();
        ++leading;
    }
    if (leading == pageRanges.size()) {
        // All silent: the trimmed amount is given in frames here, not seconds.
        leadingTrimmed = static_cast<float>(leadingFrames);
        return clip;
    }
    size_t last = pageRanges.size() - 1;
    while (last > leading && pageRanges[last].IsSilent()) --last;
    LxPageRange head = CutLeadingSilence(pageRanges[leading]);
    int cutFromFront = pageRanges[leading].WorthInFrames() - head.WorthInFrames();
    if (leading == last) {
        clip->AppendPageRange(CutTrailingSilence(head));
    } else {
        clip->AppendPageRange(head);
        for (size_t i = leading + 1; i < last; ++i) clip->AppendPageRange(pageRanges[i]);
        clip->AppendPageRange(CutTrailingSilence(pageRanges[last]));
    }
    leadingTrimmed = static_cast<float>(leadingFrames + cutFromFront) / kLxFrameRateF;
    return clip;
}

void LxAudioClipBase::Split(const std::list<int>& points, LxAudioClipBaseList& pieces) const {
    if (pageRanges.empty() || points.empty()) return;
    int total = static_cast<int>((static_cast<float>(WorthInFrames()) / kLxFrameRateF + 0.05f) * 10.0f);
    LxPageTranslation from{0, pageRanges.front().startPage, pageRanges.front().startOffset};
    for (int point : points) {
        if (point <= 0 || point >= total) {
            LxAssertFailed("splitting point out of bounds", kSourceFile, __LINE__);
            return;
        }
        LxPageTranslation to = Translate(point * 4410);
        pieces.push_back(SubClip(from, to));
        from = to;
    }
    const LxPageRange& last = pageRanges.back();
    LxPageTranslation to{static_cast<int>(pageRanges.size()) - 1, last.endPage, last.endOffset};
    pieces.push_back(SubClip(from, to));
}

void LxAudioClipBase::Split(const std::list<int>& points, std::list<int>& newClipIDs) const {
    LxAudioClipBaseList pieces;
    Split(points, pieces);
    for (auto& piece : pieces) {
        if (piece && !piece->IsEmpty()) newClipIDs.push_back(piece->WriteToAudioFile());
    }
}

void LxAudioClipBase::ApplyCorrection(const std::map<int, int>& pageShift) {
    LxClipRecord::ApplyCorrection(pageRanges, pageShift);
}
