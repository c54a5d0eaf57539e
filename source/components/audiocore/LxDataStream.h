#pragma once
// A byte member of the store ("raw.lxa", "enc.lxa"): page data appended back to
// back and read by range.
#include "LxMemberStream.h"
#include "LxRange.h"

class LxDataStream : public LxMemberStream {
public:
    LxDataStream(const LxFile& file, const LxString& name);

    // Appends count bytes at the end; returns where they went. Bytes that would
    // take the member past kMaxBytes are refused (reported; nothing written, an
    // empty range at 0): check CheckRoomFor first.
    LxRange Append(const void* bytes, int count);
    // Reads count bytes from the start of range; returns the bytes read.
    int Read(const LxRange& range, void* buffer, int count);

    // Bytes already written to the save directory by the last save (0 at
    // construction and after a truncation): where an incremental save starts.
    int GetSavedLength() const { return savedLength; }
    void SetSavedLength(int length) { savedLength = length; }

private:
    int savedLength = 0;
};
