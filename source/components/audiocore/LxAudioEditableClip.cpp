#include "LxAudioEditableClip.h"

#include <algorithm>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioClip.h"
#include "LxAudioEffect.h"
#include "LxAudioFile.h"
#include "LxAudioVolumeEffect.h"
#include "LxPublic/LxAssert.h"


namespace {

bool StartsAt(const LxPageRange& range, const LxPageTranslation& t) {
    return range.startPage == t.page && range.startOffset == t.pageOffset;
}

bool EndsAt(const LxPageRange& range, const LxPageTranslation& t) {
    return range.endPage == t.page && range.endOffset == t.pageOffset;
}

void StartAt(LxPageRange& range, const LxPageTranslation& t) {
    range.startPage = t.page;
    range.startOffset = t.pageOffset;
}

void EndAt(LxPageRange& range, const LxPageTranslation& t) {
    range.endPage = t.page;
    range.endOffset = t.pageOffset;
}

// Splits ranges[index] at t: the first part ends at t, the second (inserted
// after it, same effect) starts there. Returns the index of the second part.
size_t SplitAt(std::vector<LxPageRange>& ranges, size_t index, const LxPageTranslation& t) {
    LxPageRange second = ranges[index];
    EndAt(ranges[index], t);
    StartAt(second, t);
    ranges.insert(ranges.begin() + static_cast<std::ptrdiff_t>(index) + 1, second);
    return index + 1;
}

}  // namespace

LxAudioEditableClip::LxAudioEditableClip(LxAudioClip& target) : clip(target) {}

bool LxAudioEditableClip::TranslateStretch(int start, int end, const std::vector<LxPageRange>& ranges,
                                           LxPageTranslation& from, LxPageTranslation& to) {
    // A bound below 0 names no frame; it is rejected like any other bad cut.
    from = start >= 0 ? LxAudioClipBase::Translate(start + 1, ranges) : LxPageTranslation{};
    to = end >= 0 ? LxAudioClipBase::Translate(end + 1, ranges) : LxPageTranslation{};
    if (from.page == -1) from = LxPageTranslation{};
    if (to.page == -1) to = LxPageTranslation{};
    return LxAudioClipBase::isValidTranslationPair(from, to);
}

bool LxAudioEditableClip::Delete(int start, int end, int& deletedFrames, bool allowWholeClip) {
    deletedFrames = 0;
    if (!allowWholeClip && start == 1 && end == clip.WorthInFrames()) {
        LxReportAt("can't delete entire clip", LxReportSites::kDeleteWholeClip);
        return false;
    }
    if (start >= end) {
        LxReportAt("invalid range in delete", LxReportSites::kDeleteInvalidRange);
        return false;
    }
    std::vector<LxPageRange>& ranges = clip.pageRanges;
    LxPageTranslation a, b;
    if (!TranslateStretch(start, end, ranges, a, b)) return false;
    const int before = clip.WorthInFrames();
    const size_t ia = static_cast<size_t>(a.rangeIndex);
    const size_t ib = static_cast<size_t>(b.rangeIndex);
    if (ia != ib) {
        ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(ia) + 1,
                     ranges.begin() + static_cast<std::ptrdiff_t>(ib));
        size_t holder = ia + 1;  // the range that holds b
        if (StartsAt(ranges[ia], a)) {
            ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(ia));
            holder = ia;
        } else {
            EndAt(ranges[ia], a);
        }
        // A range cut down to nothing is dropped rather than kept as an empty entry.
        if (EndsAt(ranges[holder], b)) {
            ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(holder));
        } else {
            StartAt(ranges[holder], b);
        }
    } else {
        LxPageRange& range = ranges[ia];
        if (StartsAt(range, a) && EndsAt(range, b)) {
            ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(ia));
        } else if (StartsAt(range, a)) {
            StartAt(range, b);
        } else if (EndsAt(range, b)) {
            EndAt(range, a);
        } else {
            size_t second = SplitAt(ranges, ia, a);
            StartAt(ranges[second], b);
        }
    }
    deletedFrames = before - clip.WorthInFrames();
    return true;
}

bool LxAudioEditableClip::InsertAt(int position, int& insertedFrames, const LxAudioClip& source, int start, int end) {
    return InsertAt(position, source.GetPageRanges(), start, end, insertedFrames);
}

bool LxAudioEditableClip::InsertAt(int position, const std::vector<LxPageRange>& source, int start, int end,
                                   int& insertedFrames) {
    insertedFrames = 0;
    if (start >= end) {
        LxReportAt("invalid range in insert", LxReportSites::kInsertInvalidRange);
        return false;
    }
    std::vector<LxPageRange>& ranges = clip.pageRanges;
    LxPageTranslation at = position >= 0 ? clip.Translate(position + 1) : LxPageTranslation{};
    if (at.rangeIndex == -1 || at.page == -1) {
        LxReportAt("invalid insertion point", LxReportSites::kInsertInvalidPoint);
        return false;
    }
    LxPageTranslation a, b;
    if (!TranslateStretch(start, end, source, a, b)) return false;

    // The piece is built before the clip changes: source may be the clip's own list.
    std::vector<LxPageRange> piece(source.begin() + a.rangeIndex, source.begin() + b.rangeIndex + 1);
    StartAt(piece.front(), a);
    EndAt(piece.back(), b);

    const int before = clip.WorthInFrames();
    size_t index = static_cast<size_t>(at.rangeIndex);
    if (StartsAt(ranges[index], at)) {
        // before this range
    } else if (EndsAt(ranges[index], at)) {
        ++index;
    } else {
        index = SplitAt(ranges, index, at);
    }
    ranges.insert(ranges.begin() + static_cast<std::ptrdiff_t>(index), piece.begin(), piece.end());
    insertedFrames = clip.WorthInFrames() - before;
    return true;
}

bool LxAudioEditableClip::AddEffect(int start, int end, LxAudioEffect& effect) {
    std::vector<LxPageRange>& ranges = clip.pageRanges;
    LxPageTranslation a, b;
    if (!TranslateStretch(start, end, ranges, a, b)) return false;
    size_t ia = static_cast<size_t>(a.rangeIndex);
    size_t ib = static_cast<size_t>(b.rangeIndex);
    if (ia == ib) {
        size_t target = ia;
        if (!StartsAt(ranges[target], a)) target = SplitAt(ranges, target, a);
        if (!EndsAt(ranges[target], b)) SplitAt(ranges, target, b);
        ranges[target].AddEffect(effect);
        return true;
    }
    for (size_t i = ia + 1; i < ib; ++i) ranges[i].AddEffect(effect);
    // The end first, so that the index of a's range stays put. A b at the very
    // start of its range leaves that range out (no empty piece is made).
    if (!StartsAt(ranges[ib], b)) {
        if (!EndsAt(ranges[ib], b)) SplitAt(ranges, ib, b);
        ranges[ib].AddEffect(effect);
    }
    if (StartsAt(ranges[ia], a)) {
        ranges[ia].AddEffect(effect);
    } else {
        ranges[SplitAt(ranges, ia, a)].AddEffect(effect);
    }
    return true;
}

bool LxAudioEditableClip::Normalize(int start, int end) {
    LxAudioVolumeEffect effect(1.0f, 0.0f, 1.0f);
    effect.gain = clip.GetBestVolume(start, end);
    return AddEffect(start, end, effect);
}

bool LxAudioEditableClip::InsertSilence(int position, float seconds, int& insertedFrames) {
    return InsertSilenceFrames(position, static_cast<int>(seconds * kLxFrameRateF), insertedFrames);
}

bool LxAudioEditableClip::InsertSilenceFrames(int position, int frames, int& insertedFrames) {
    insertedFrames = 0;
    if (frames < 1) return true;
    if (position >= clip.WorthInFrames() - 90) {
        clip.AppendSilenceFrames(frames, insertedFrames, true);
        return true;
    }
    std::vector<LxPageRange> silence = LxAudioClipBase::MakeSilenceRanges(clip.GetAudioFile(), frames);
    // The stretch (1, frames) of the silence: the first silent frame is not part of it.
    return InsertAt(position, silence, 1, frames, insertedFrames);
}

void LxAudioEditableClip::AppendDeciSecondsOfSilence(int deciSeconds, int& appendedFrames) {
    clip.AppendSilenceFrames((deciSeconds * kLxFrameRate) / 10, appendedFrames, true);
}

void LxAudioEditableClip::AppendSilenceFrames(int frames, int& appendedFrames) {
    clip.AppendSilenceFrames(frames, appendedFrames, true);
}

void LxAudioEditableClip::AddOneUndoRedoDatum() {
    if (undoActionIndex >= 1 && undoActionIndex < static_cast<int>(undoData.size())) {
        undoData.erase(undoData.begin() + undoActionIndex, undoData.end());
    }
    if (undoData.size() == undoData.capacity()) {
        undoData.reserve(undoData.capacity() + std::max<size_t>(1, undoData.capacity() / 2));
    }
    undoData.push_back(clip.GetPageRanges());
    MoveUndoActionIndexBy(1);
}

bool LxAudioEditableClip::Undo() {
    if (undoActionIndex < 2) return false;
    MoveUndoActionIndexBy(-1);
    clip.pageRanges = undoData[static_cast<size_t>(undoActionIndex - 1)];
    return true;
}

bool LxAudioEditableClip::Redo() {
    if (undoActionIndex >= static_cast<int>(undoData.size())) return false;
    clip.pageRanges = undoData[static_cast<size_t>(undoActionIndex)];
    MoveUndoActionIndexBy(1);
    return true;
}

void LxAudioEditableClip::ResetUndoRedo() {
    if (undoData.empty()) return;
    undoData.resize(1);
    undoActionIndex = 1;
}

bool LxAudioEditableClip::Copy(int start, int end) {
    if (start == -1) return false;
    clipBoardStart = start;
    clipBoardEnd = end;
    clipBoardRanges = clip.GetPageRanges();
    return true;
}

bool LxAudioEditableClip::PasteAt(int position, int& insertedFrames) {
    insertedFrames = 0;
    if (clipBoardStart == -1) return false;
    return InsertAt(position, clipBoardRanges, clipBoardStart, clipBoardEnd, insertedFrames);
}
