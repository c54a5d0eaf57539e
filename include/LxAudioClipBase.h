#pragma once
// A clip reduced to its essence: an ordered list of page ranges over one store.
// It owns no samples, so cutting, joining, splitting and trimming are list
// operations. The store is referred to, never owned, and must outlive the clip.
// Objects returned through std::unique_ptr belong to the caller.
#include <list>
#include <map>
#include <memory>
#include <vector>
#include "ILxClipRecord.h"
#include "LxAudioCoreExport.h"
#include "LxPageRange.h"
#include "LxPageTranslation.h"

class LxAudioFile;
class LxAudioClipBase;
class ILxReadWriteStream;

using LxAudioClipBaseList = std::list<std::unique_ptr<LxAudioClipBase>>;

class LXAUDIOCORE_API LxAudioClipBase : public ILxClipRecord {
public:
    // An empty clip; with clipID != -1 it is loaded from the store.
    LxAudioClipBase(LxAudioFile& file, int clipID = -1);
    LxAudioClipBase(const LxAudioClipBase& other) = default;
    LxAudioClipBase& operator=(const LxAudioClipBase& other);
    virtual ~LxAudioClipBase();

    int WorthInBytes() const override;
    int WorthInFrames() const override;
    // The clip's record in "clip.lxa": its page ranges (subclasses add their own fields after them).
    void ReadFromStream(ILxReadWriteStream& stream) override;
    void WriteToStream(ILxReadWriteStream& stream) override;

    // Persistence through the store: load a record by ID, or store this clip as a
    // new record and return its new ID.
    bool ReadFromAudioFile(int clipID);
    int WriteToAudioFile();

    bool IsEmpty() const { return pageRanges.empty(); }
    bool IsSilent() const;
    bool IsSameAs(const LxAudioClipBase& other) const;
    const std::vector<LxPageRange>& GetPageRanges() const { return pageRanges; }
    void CopyPageRangesTo(std::vector<LxPageRange>& out) const { out = pageRanges; }
    LxAudioFile& GetAudioFile() const { return *audioFile; }
    int GetMaximumNumberOfChannels() const;
    int GetChannelsForExport() const;

    float WorthInSeconds() const;
    int WorthInDeciSeconds() const;

    // Positions: 1-based frames, or times, to {range index, page, offset}.
    static LxPageTranslation Translate(int frame, const std::vector<LxPageRange>& ranges);
    static LxPageTranslation TranslateTime(float seconds, const std::vector<LxPageRange>& ranges);
    static LxPageTranslation TranslateTimeInDeciSeconds(int deciSeconds, const std::vector<LxPageRange>& ranges);
    static LxPageTranslation TranslateTimeInMilliSeconds(const int& milliSeconds,
                                                         const std::vector<LxPageRange>& ranges);
    static void IncrementTranslationByOneFrame(LxPageTranslation& translation,
                                               const std::vector<LxPageRange>& ranges);
    LxPageTranslation Translate(int frame) const { return Translate(frame, pageRanges); }
    LxPageTranslation TranslateTime(float seconds) const { return TranslateTime(seconds, pageRanges); }
    LxPageTranslation TranslateTimeInDeciSeconds(int deciSeconds) const {
        return TranslateTimeInDeciSeconds(deciSeconds, pageRanges);
    }
    LxPageTranslation TranslateTimeInMilliSeconds(const int& milliSeconds) const {
        return TranslateTimeInMilliSeconds(milliSeconds, pageRanges);
    }
    void IncrementTranslationByOneFrame(LxPageTranslation& translation) const {
        IncrementTranslationByOneFrame(translation, pageRanges);
    }

    // List operations: each inserts exactly the ranges given, in their order.
    void AppendPageRange(const LxPageRange& range);
    void AppendPageRanges(const std::vector<LxPageRange>& ranges);
    void AppendClip(const LxAudioClipBase& clip);
    void PrependPageRange(const LxPageRange& range);
    void PrependPageRanges(const std::vector<LxPageRange>& ranges);
    void PrependClip(const LxAudioClipBase& clip);
    void ReplaceWith(const LxAudioClipBase& clip);

    // Silence made of cut copies of the store's reserved silent pages.
    void AppendSilenceFrames(int frames, int& framesAdded, bool unused);
    void PrependSilenceFrames(int frames, int& framesAdded, bool unused);
    void AppendDeciSecondsOfSilence(int deciSeconds, int& framesAdded, bool unused);
    void PrependDeciSecondsOfSilence(int deciSeconds, int& framesAdded, bool unused);

    // A new clip over [from, to); null on bad arguments.
    std::unique_ptr<LxAudioClipBase> SubClip(const LxPageTranslation& from, const LxPageTranslation& to) const;
    std::unique_ptr<LxAudioClipBase> SubClip(const int& fromMs, const int& toMs) const;
    // A new clip without leading and trailing silence, cut at 180-byte blocks; this
    // clip is unchanged. leadingTrimmed is in seconds, except for a clip that is
    // silent throughout: then the result is empty and leadingTrimmed is in frames.
    std::unique_ptr<LxAudioClipBase> TrimSilence(float& leadingTrimmed) const;
    // Cuts the clip at the given deci-second points.
    void Split(const std::list<int>& pointsInDeciSeconds, LxAudioClipBaseList& pieces) const;
    void Split(const std::list<int>& pointsInDeciSeconds, std::list<int>& newClipIDs) const;
    // Renumbers page IDs after compaction: keys are old page IDs, values the downward shift.
    void ApplyCorrection(const std::map<int, int>& pageShift);

    // Cut copies of the store's reserved silence range covering frames frames in all.
    static std::vector<LxPageRange> MakeSilenceRanges(LxAudioFile& file, int frames);

protected:
    // The editing front works on the range vector directly.
    friend class LxAudioEditableClip;

    static bool isValidTranslationPair(const LxPageTranslation& from, const LxPageTranslation& to);

    std::vector<LxPageRange> pageRanges;
    LxAudioFile* audioFile;
};
