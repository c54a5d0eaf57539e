#include "LxInPlaceStream.h"

#include <algorithm>

LxInPlaceStream::LxInPlaceStream(std::unique_ptr<ILxReadWriteStream> ownFile, std::shared_ptr<ILxReadWriteStream> baseFile,
                                 int64_t offset, int64_t length)
    : own(std::move(ownFile)), base(std::move(baseFile)), baseOffset(offset), baseLength(base ? length : 0) {}

LxInPlaceStream::~LxInPlaceStream() { Close(); }

bool LxInPlaceStream::IsOpen() const { return own && own->IsOpen(); }

int64_t LxInPlaceStream::GetLength() const {
    if (!own) return 0;
    return std::max(baseLength, own->GetLength());
}

int LxInPlaceStream::Read(void* buffer, int bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    auto* out = static_cast<unsigned char*>(buffer);
    int done = 0;
    if (position < baseLength) {
        const int n = static_cast<int>(std::min<int64_t>(bytes, baseLength - position));
        if (!base->Seek(baseOffset + position, kLxSeekBegin)) return 0;
        const int got = std::max(0, base->Read(out, n));
        done += got;
        position += got;
        if (got != n) return done;
    }
    if (done < bytes && position >= baseLength) {
        if (!own->Seek(position, kLxSeekBegin)) return done;
        const int got = std::max(0, own->Read(out + done, bytes - done));
        done += got;
        position += got;
    }
    return done;
}

int LxInPlaceStream::Write(const void* buffer, int bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    if (position < baseLength && !Materialize()) return 0;
    if (!own->Seek(position, kLxSeekBegin)) return 0;
    own->SetWriting(true);
    const int put = std::max(0, own->Write(buffer, bytes));
    position += put;
    return put;
}

bool LxInPlaceStream::Seek(int64_t offset, LxSeekOrigin origin) {
    if (!IsOpen()) return false;
    const int64_t start = origin == kLxSeekBegin ? 0 : origin == kLxSeekCurrent ? position : GetLength();
    if (start + offset < 0) return false;
    position = start + offset;
    return true;
}

bool LxInPlaceStream::Truncate() {
    if (!IsOpen()) return false;
    if (position == 0 && base) {
        // Nothing of the base is kept: let the project file go.
        droppedReadFailures += base->GetReadFailures();
        base.reset();
        baseLength = 0;
    } else if (position < baseLength && !Materialize()) {
        return false;
    }
    if (!own->Seek(position, kLxSeekBegin)) return false;
    return own->Truncate();
}

bool LxInPlaceStream::Materialize() {
    if (!base) return true;
    if (!own->Seek(0, kLxSeekBegin) || !base->Seek(baseOffset, kLxSeekBegin)) return false;
    own->SetWriting(true);
    if (own->CopyFrom(*base, baseLength) != baseLength) return false;
    droppedReadFailures += base->GetReadFailures();
    base.reset();
    baseLength = 0;
    return true;
}

bool LxInPlaceStream::Flush() { return IsOpen() && own->Flush(); }

bool LxInPlaceStream::Sync() { return IsOpen() && own->Sync(); }

void LxInPlaceStream::Close() {
    if (own) own->Close();
    if (base) droppedReadFailures += base->GetReadFailures();
    base.reset();
    baseLength = 0;
}

int64_t LxInPlaceStream::GetReadFailures() const {
    return (own ? own->GetReadFailures() : 0) + (base ? base->GetReadFailures() : 0) + droppedReadFailures;
}

int64_t LxInPlaceStream::GetWriteFailures() const { return own ? own->GetWriteFailures() : 0; }

int64_t LxInPlaceStream::CopyFrom(ILxStream& source, int64_t bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    if (position < baseLength && !Materialize()) return 0;
    if (!own->Seek(position, kLxSeekBegin)) return 0;
    own->SetWriting(true);
    const int64_t copied = own->CopyFrom(source, bytes);
    position += copied;
    return copied;
}

int64_t LxInPlaceStream::CopyTo(ILxStream& target, int64_t bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    int64_t done = 0;
    if (position < baseLength) {
        // Straight from the project file (inside the system when target is a file).
        const int64_t n = std::min(bytes, baseLength - position);
        if (!base->Seek(baseOffset + position, kLxSeekBegin)) return 0;
        done = target.CopyFrom(*base, n);
        position += done;
        if (done != n) return done;
    }
    if (done < bytes) {
        if (!own->Seek(position, kLxSeekBegin)) return done;
        const int64_t copied = target.CopyFrom(*own, bytes - done);
        position += copied;
        done += copied;
    }
    return done;
}
