#include "LxDataStream.h"

#include <algorithm>

LxDataStream::LxDataStream(const LxFile& memberFile, const LxString& memberName)
    : LxMemberStream(memberFile, memberName) {}

LxRange LxDataStream::Append(const void* bytes, int count) {
    LxRange range;
    if (!stream) return range;
    // Callers check the room before they write anything; this only keeps a
    // position from ever wrapping.
    if (!CheckRoomFor(count)) return range;
    stream->Seek(0, kLxSeekEnd);
    range.start = static_cast<int>(stream->GetPosition());
    stream->SetWriting(true);
    if (count > 0) stream->Write(bytes, count);
    range.end = static_cast<int>(stream->GetPosition());
    return range;
}

int LxDataStream::Read(const LxRange& range, void* buffer, int count) {
    if (!stream || count <= 0 || range.start < 0) return 0;
    if (!stream->Seek(range.start, kLxSeekBegin)) return 0;
    stream->SetWriting(false);
    return std::max(0, stream->Read(buffer, count));
}
