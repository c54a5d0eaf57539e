#pragma once
// The five member files of a store, opened together on one directory, owned
// together and named in one table: "raw.lxa", "enc.lxa", "pcm.lxa",
// "clip.lxa", "map.lxa", in that order (the order of every saved form).
// Destroying the set destroys the members in the reverse order, each deleting
// its file. Not locked itself: its owner's lock is held around every call.
#include <cstdint>
#include <memory>
#include "LxClipDataStream.h"
#include "LxClipMapStream.h"
#include "LxDataStream.h"
#include "LxPCMDataStream.h"
#include "LxPublic/LxFile.h"

class LxStoreMembers {
public:
    enum Index { kRaw, kEnc, kPcm, kClip, kMap, kCount };

    // "raw.lxa" ... "map.lxa".
    static const char* Name(int index);

    // Opens (creating when missing) the five member files in directory.
    explicit LxStoreMembers(const LxFile& directory);
    ~LxStoreMembers();
    LxStoreMembers(const LxStoreMembers&) = delete;
    LxStoreMembers& operator=(const LxStoreMembers&) = delete;

    LxDataStream& Raw() const { return *raw; }
    LxDataStream& Enc() const { return *enc; }
    LxPCMDataStream& Pcm() const { return *pcm; }
    LxClipDataStream& Clip() const { return *clip; }
    LxClipMapStream& Map() const { return *map; }
    LxMemberStream& At(int index) const;

    // Sizes in bytes, in table order; the clip table is written out first.
    void GetSizes(int sizes[kCount]);
    // Failed reads (or writes, chunk saves included) of all five since they were opened.
    int64_t Failures(bool writes) const;
    // Flushes all five; the clip table is written out first.
    void Flush();
    void Close();
    // Empties all five and the clip table; the saved lengths and the compression cursor go back to 0.
    void Truncate();
    // Moves the five files into directory under their own names.
    bool MoveInto(const LxFile& directory);

private:
    std::unique_ptr<LxDataStream> raw;
    std::unique_ptr<LxDataStream> enc;
    std::unique_ptr<LxPCMDataStream> pcm;
    std::unique_ptr<LxClipDataStream> clip;
    std::unique_ptr<LxClipMapStream> map;
};
