#include "LxClipMapStream.h"

#include <algorithm>
#include <cstdint>
#include "LxPublic/LxAssert.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

LxClipMapStream::LxClipMapStream(const LxFile& memberFile) : LxMemberStream(memberFile, "map.lxa") { Load(); }

void LxClipMapStream::Load() {
    table.clear();
    if (!stream) return;
    stream->Seek(0, kLxSeekBegin);
    stream->SetWriting(false);
    int32_t count = 0;
    if (!stream->Xfer(count) || count < 1) return;
    // A damaged table keeps what can be read, with one report: a count larger
    // than the pairs present (a truncated file) stops at the end of the data, a
    // clip ID that occurs twice keeps its first position, and an ID below 1
    // (which names no clip) is left out.
    bool damaged = false;
    int64_t available = (stream->GetLength() - 4) / 8;
    if (count > available) damaged = true;
    for (int64_t i = 0; i < count && i < available; ++i) {
        int32_t clipID = 0;
        uint32_t position = 0;
        if (!stream->Xfer(clipID) || !stream->Xfer(position)) {
            damaged = true;
            break;
        }
        if (clipID < 1 || !table.emplace(clipID, position).second) damaged = true;
    }
    if (damaged) LxAssertFailed("clip table damaged", kSourceFile, __LINE__);
}

void LxClipMapStream::Save() {
    if (!stream) return;
    stream->Seek(0, kLxSeekBegin);
    stream->SetWriting(true);
    int32_t count = static_cast<int32_t>(table.size());
    stream->Xfer(count);
    for (auto& [clipID, position] : table) {
        int32_t id = clipID;
        uint32_t where = position;
        stream->Xfer(id);
        stream->Xfer(where);
    }
    stream->Truncate();
}

int LxClipMapStream::GetNextClipID() const {
    if (table.empty()) return 1;
    int largest = table.rbegin()->first;
    // IDs are never reused, so a table that holds the largest int has none left.
    return largest == INT32_MAX ? -1 : std::max(largest + 1, 1);
}

std::optional<uint32_t> LxClipMapStream::Find(int clipID) const {
    auto it = table.find(clipID);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

void LxClipMapStream::GetClipIDs(std::list<int>& clipIDs) const {
    clipIDs.clear();
    for (const auto& entry : table) clipIDs.push_back(entry.first);
}

bool LxClipMapStream::WriteTo(ILxStream& out) {
    Save();
    Flush();
    return LxMemberStream::WriteTo(out);
}

bool LxClipMapStream::ReadFrom(ILxStream& in, int length) {
    table.clear();
    bool ok = LxMemberStream::ReadFrom(in, length);
    Load();
    return ok;
}

int LxClipMapStream::SaveWhole(const LxFile& directory) {
    Save();
    Flush();
    return SaveChunks(directory, -1, nullptr);
}

int LxClipMapStream::LoadWhole(const LxFile& directory) {
    table.clear();
    int bytes = LoadChunks(directory);
    Load();
    return bytes;
}
