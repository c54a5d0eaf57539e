#pragma once
// A stretch of consecutive pages of one store, from a byte offset in its first
// page to an exclusive byte offset in its last page, with the volume effect that
// is applied when the stretch is read. A value type: clips are vectors of these.
// The store is referred to, never owned.
//
// The first question about a range (is it valid, how long is it) checks it
// against the page records once, under the store's lock, and keeps the answers:
// frames, bytes, channels, and the page lengths positions are worked out from.
// Later questions are answered from what was kept, without the store, for as
// long as the four page fields and the store are the ones it was checked with
// and the store has not replaced its pages since (a load, a clear, a
// compaction). Changing a field directly is therefore always safe: the range is
// checked again the next time it is asked. An invalid range keeps nothing and
// reports on every question, as it always has.
#include <cstdint>
#include "LxAudioCoreExport.h"
#include "LxAudioVolumeEffect.h"

class LxAudioFile;
class ILxReadWriteStream;

class LXAUDIOCORE_API LxPageRange {
public:
    LxPageRange() = default;
    explicit LxPageRange(LxAudioFile* file) : audioFile(file) {}
    LxPageRange(LxAudioFile* file, const LxAudioVolumeEffect& volume, int firstPage, int firstOffset, int lastPage,
                int lastOffset)
        : effect(volume), startPage(firstPage), startOffset(firstOffset), endPage(lastPage), endOffset(lastOffset),
          audioFile(file) {}

    // Checks the invariants against the page headers; reports and returns false
    // when one is broken.
    bool IsValid() const;
    // Frames covered; 0 for an invalid range. Each page counts with its own frame size.
    int WorthInFrames() const;
    // Bytes covered; 0 for an invalid range.
    int WorthInBytes() const;
    // Page and byte offset of the 1-based frame; both -1 when it lies outside.
    void Translate(int frame, int& page, int& pageOffset) const;
    // Steps (page, pageOffset) on by one frame. Reaching the end of a page first
    // gives offset == page length; the next step moves to offset 0 of page + 36.
    void IncrementByOneFrame(int& page, int& pageOffset) const;
    // 2 when any page of the range is stereo, else 1.
    int GetMaximumNumberOfChannels() const;
    // Channel count of the start page (1 for an invalid range).
    int GetChannels() const;
    // True when every byte the range covers is zero (or it lies inside the
    // store's reserved silence).
    bool IsSilent() const;
    // Folds a volume effect into this range's effect: gains multiply, compressor
    // settings average (a range without a compressor takes the new one over).
    // Any other kind of effect is reported and ignored.
    void AddEffect(const LxAudioEffect& other);
    // Writes or reads the four page fields and the effect list, by the stream's direction.
    void Serialize(ILxReadWriteStream& stream);

    LxAudioFile* GetAudioFile() const { return audioFile; }
    void SetAudioFile(LxAudioFile* file) {
        audioFile = file;
        kept.valid = false;
    }

    // Same pages, offsets and effect parameters; the store is not compared.
    friend bool operator==(const LxPageRange& a, const LxPageRange& b) {
        return a.startPage == b.startPage && a.startOffset == b.startOffset && a.endPage == b.endPage &&
               a.endOffset == b.endOffset && a.effect.gain == b.effect.gain &&
               a.effect.threshold == b.effect.threshold && a.effect.ratio == b.effect.ratio;
    }
    friend bool operator!=(const LxPageRange& a, const LxPageRange& b) { return !(a == b); }

    LxAudioVolumeEffect effect;
    int startPage = -1;
    int startOffset = -1;
    int endPage = -1;
    int endOffset = -1;

private:
    // What one check against the page records found.
    // Small, as clips copy whole vectors of ranges (undo, redo, clipboard).
    struct Kept {
        int startPage = -1, startOffset = -1, endPage = -1, endOffset = -1;
        uint32_t pageEpoch = 0;
        int frames = 0;
        int bytes = 0;
        // Lengths in bytes of the first page and of each page between the first
        // and the last, and the frame size of every page, when all pages agree
        // on them (uniform); otherwise positions are found record by record.
        int firstPageBytes = 0;
        int middlePageBytes = 0;
        int8_t bytesPerFrame = 0;
        int8_t channels = 1;
        int8_t maxChannels = 1;
        bool uniform : 1;
        // Whether the rest describes the range as it was checked.
        bool valid : 1;
        Kept() : uniform(false), valid(false) {}
    };
    // Checks the range when what was kept does not describe it; false (and
    // nothing kept) for an invalid range, which has then been reported.
    bool Check() const;
    bool KeptIsCurrent() const;
    // The checks of IsValid against the page records; reports what is broken.
    bool CheckAgainstRecords() const;

    LxAudioFile* audioFile = nullptr;
    mutable Kept kept;
};
