#pragma once
// A clip record as plain data: the page ranges, as every clip stores them
// (an int32 count, then each range's four page fields and its effects), and,
// when written, the int32 source field that follows them in every record the
// library writes, as "other". The store's own jobs that move clips (compaction,
// copying between stores, salvage) read and write records through this class,
// so the store never needs to know the clip classes built on top of it.
#include <map>
#include <vector>
#include "ILxClipRecord.h"
#include "LxPageRange.h"

class LxAudioFile;

class LxClipRecord : public ILxClipRecord {
public:
    explicit LxClipRecord(LxAudioFile* store) : store(store) {}

    // The range list of a record; a count longer than the stream could hold is
    // reported and cut to what it could. Ranges refer to store.
    static void ReadRanges(ILxReadWriteStream& stream, LxAudioFile* store, std::vector<LxPageRange>& ranges);
    static void WriteRanges(ILxReadWriteStream& stream, std::vector<LxPageRange>& ranges);

    // Copies the pages of range from its store into target in their stored form
    // (a compressed page stays compressed, with its thumbnail), consecutive as
    // they were, and gives the same range over the copies. False for a range
    // whose page fields cannot be walked, and when no page could be copied.
    static bool CopyRange(const LxPageRange& range, LxAudioFile& target, LxPageRange& copied);

    // Renumbers page IDs after compaction: keys are old page IDs, values the
    // downward shift; the shift for both ends is chosen by the start page alone.
    static void ApplyCorrection(std::vector<LxPageRange>& ranges, const std::map<int, int>& pageShift);

    // Sums of the lengths of a list of ranges (a record's, a clip's).
    static int BytesOf(const std::vector<LxPageRange>& ranges);
    static int FramesOf(const std::vector<LxPageRange>& ranges);

    int WorthInBytes() const override;
    int WorthInFrames() const override;
    // Reads the ranges; whatever the clip stored after them is left unread.
    void ReadFromStream(ILxReadWriteStream& stream) override;
    void WriteToStream(ILxReadWriteStream& stream) override;

    std::vector<LxPageRange> ranges;

private:
    LxAudioFile* store;
};
