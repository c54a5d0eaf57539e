#pragma once
// "map.lxa" and the clip table: clip ID -> position of the clip's record in
// "clip.lxa". The table lives in memory and reaches the file on Save.
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include "LxMemberStream.h"

class LxClipMapStream : public LxMemberStream {
public:
    explicit LxClipMapStream(const LxFile& file);

    // Rebuilds the table from the file; a damaged file yields what could be read.
    void Load();
    // Writes the table and cuts the file after it.
    void Save();
    // One more than the largest ID (1 for an empty table); -1 when none is left.
    int GetNextClipID() const;
    uint32_t& operator[](int clipID) { return table[clipID]; }
    std::optional<uint32_t> Find(int clipID) const;
    void GetClipIDs(std::list<int>& clipIDs) const;
    int GetCount() const { return static_cast<int>(table.size()); }
    void Clear() { table.clear(); }

    bool WriteTo(ILxStream& out) override;
    bool ReadFrom(ILxStream& in, int length) override;
    int SaveWhole(const LxFile& directory);
    int LoadWhole(const LxFile& directory);

private:
    std::map<int, uint32_t> table;
};
