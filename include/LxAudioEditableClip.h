#pragma once
// The editing front of one audio clip: delete, insert, paste, silence, volume
// effects and normalising, with a clipboard and an undo/redo history. Every
// edit rewrites only the clip's list of page ranges; no audio is copied,
// written or re-encoded, and effects are folded into the ranges' own volume
// effects, so they apply when the clip is read. Nothing is saved here: the host
// saves the clip when it wants an edit kept.
//
// Positions are frame counts from the clip's start: position p is the cut
// point just before 1-based frame p + 1, and a stretch (start, end) is the audio
// between two cut points. Edits do not record undo states by themselves: the
// host calls AddOneUndoRedoDatum once when it opens the clip for editing and
// again after every successful edit.
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxPageRange.h"
#include "LxPageTranslation.h"

class LxAudioClip;
class LxAudioEffect;

class LXAUDIOCORE_API LxAudioEditableClip {
public:
    // The clip must outlive this object.
    explicit LxAudioEditableClip(LxAudioClip& clip);

    // Removes the stretch (start, end). Deleting the whole clip (start 1, end at
    // its length) needs allowWholeClip.
    bool Delete(int start, int end, int& deletedFrames, bool allowWholeClip);
    // Inserts the stretch (start, end) of source (or of ranges) at position.
    bool InsertAt(int position, int& insertedFrames, const LxAudioClip& source, int start, int end);
    bool InsertAt(int position, const std::vector<LxPageRange>& ranges, int start, int end, int& insertedFrames);
    // Folds a volume effect into every range the stretch covers, splitting
    // ranges at its ends; the clip's length does not change.
    bool AddEffect(int start, int end, LxAudioEffect& effect);
    // A gain that brings the stretch's loudest point to full scale.
    bool Normalize(int start, int end);
    bool InsertSilence(int position, float seconds, int& insertedFrames);
    // Silence within the last 90 frames of the clip is appended at its end.
    bool InsertSilenceFrames(int position, int frames, int& insertedFrames);
    void AppendDeciSecondsOfSilence(int deciSeconds, int& appendedFrames);
    void AppendSilenceFrames(int frames, int& appendedFrames);

    // --- undo / redo ------------------------------------------------------------------
    // Records the clip's current ranges as the newest state, dropping any redo tail.
    void AddOneUndoRedoDatum();
    bool Undo();
    bool Redo();
    bool CanUndo() const { return undoActionIndex > 1; }
    bool CanRedo() const { return undoActionIndex < static_cast<int>(undoData.size()); }
    // Keeps only the first recorded state.
    void ResetUndoRedo();
    int GetNumberOfUndoStates() const { return static_cast<int>(undoData.size()); }
    int GetUndoActionIndex() const { return undoActionIndex; }

    // --- clipboard ----------------------------------------------------------------------
    // Remembers the stretch and the clip's whole range list as it is now, so a
    // later paste inserts what was copied even after further edits.
    bool Copy(int start, int end);
    bool PasteAt(int position, int& insertedFrames);
    bool ClipBoardHasData() const { return clipBoardStart != -1; }
    int GetClipBoardDataLength() const { return clipBoardStart == 0 ? 0 : clipBoardEnd - clipBoardStart; }

private:
    void MoveUndoActionIndexBy(int delta) { undoActionIndex += delta; }
    // Cut points (start + 1, end + 1) over ranges; false (reported) when they do not form a stretch.
    static bool TranslateStretch(int start, int end, const std::vector<LxPageRange>& ranges, LxPageTranslation& from,
                                 LxPageTranslation& to);

    std::vector<LxPageRange> clipBoardRanges;
    int clipBoardStart = -1;
    int clipBoardEnd = -1;
    std::vector<std::vector<LxPageRange>> undoData;
    int undoActionIndex = 0;
    LxAudioClip& clip;
};
