#include "LxFileStream.h"

#include <algorithm>
#include <cstring>
#include "LxPublic/LxFaultInjection.h"

LxFileStream::~LxFileStream() { Close(); }

namespace {

// Write-behind starts the disk on this much at a time: large enough for few
// calls, small enough that the disk starts early in a save.
constexpr int64_t kWriteBehindBytes = int64_t{8} << 20;

}  // namespace

int64_t LxFileStream::WriteToDisk(int64_t offset, const void* buffer, int64_t bytes) {
    const int64_t allowed = LxFaultInjection::AllowDiskBytes(bytes);
    if (allowed <= 0) return 0;
    const int64_t written = native.WriteAt(offset, buffer, allowed);
    if (written > 0) WroteUpTo(offset + written);
    return written;
}

void LxFileStream::WroteUpTo(int64_t end) {
    if (!writeBehind) return;
    // Saves write front to back; a write behind the mark restarts it there.
    if (end < writtenBehind) writtenBehind = 0;
    if (end - writtenBehind < kWriteBehindBytes) return;
    native.StartWriteBack(writtenBehind, end - writtenBehind);
    writtenBehind = end;
}

int64_t LxFileStream::CopyFrom(ILxStream& source, int64_t bytes) {
    auto* from = dynamic_cast<LxFileStream*>(&source);
    if (from == nullptr || from == this || !from->IsOpen() || from->lostPosition || lostPosition)
        return ILxStream::CopyFrom(source, bytes);
    if (!IsOpen() || !writable || bytes <= 0) return 0;
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kRead)) {
        ++from->readFailures;
        return 0;
    }
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kWrite)) {
        ++writeFailures;
        return 0;
    }
    // The file must hold what either window still keeps to itself, and this
    // window must not keep bytes the copy replaces underneath it.
    if (!from->WriteBack() || !WriteBack()) return 0;
    windowBytes = 0;
    const int64_t wanted = std::min(bytes, std::max<int64_t>(0, from->size - from->position));
    int64_t done = 0;
    while (done < wanted) {
        // In pieces, so that write-behind starts the disk as the copy goes.
        const int64_t piece = std::min(wanted - done, kWriteBehindBytes);
        const int64_t allowed = LxFaultInjection::AllowDiskBytes(piece);
        const int64_t copied =
            allowed > 0 ? from->native.CopyTo(native, from->position, position, allowed) : 0;
        if (copied > 0) {
            done += copied;
            from->position += copied;
            position += copied;
            size = std::max(size, position);
            WroteUpTo(position);
        }
        if (copied != piece) {
            ++writeFailures;
            // The file holds less than the stream reported; make the length honest.
            const int64_t fileSize = native.Size();
            if (fileSize >= 0) size = std::max(fileSize, position);
            break;
        }
    }
    return done;
}

bool LxFileStream::Open(const LxFile& file, LxNativeFile::OpenMode mode) {
    if (!native.Open(file, mode)) return false;
    writable = mode != LxNativeFile::kOpenRead;
    window.assign(static_cast<size_t>(kBufferBytes), 0);
    windowStart = windowBytes = dirtyLo = dirtyHi = position = 0;
    size = native.Size();
    if (size < 0) {
        native.Close();
        return false;
    }
    return true;
}

bool LxFileStream::WriteBack() {
    if (dirtyHi <= dirtyLo) return true;
    int64_t bytes = dirtyHi - dirtyLo;
    int64_t written = WriteToDisk(windowStart + dirtyLo, window.data() + dirtyLo, bytes);
    dirtyLo = dirtyHi = 0;
    if (written != bytes) {
        ++writeFailures;
        // The file holds less than the stream reported; make the length honest.
        int64_t fileSize = native.Size();
        if (fileSize >= 0) size = fileSize;
        windowBytes = 0;
        return false;
    }
    return true;
}

int LxFileStream::Read(void* buffer, int bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    if (lostPosition || LxFaultInjection::ShouldFail(LxFaultInjection::kRead)) {
        ++readFailures;
        return 0;
    }
    if (position >= size) return 0;
    int64_t wanted = std::min<int64_t>(bytes, size - position);
    auto* out = static_cast<unsigned char*>(buffer);
    int64_t done = 0;
    while (done < wanted) {
        if (position >= windowStart && position < windowStart + windowBytes) {
            int64_t n = std::min(wanted - done, windowStart + windowBytes - position);
            std::memcpy(out + done, window.data() + (position - windowStart), static_cast<size_t>(n));
            done += n;
            position += n;
            continue;
        }
        if (!WriteBack()) break;
        int64_t remaining = wanted - done;
        if (remaining >= kBufferBytes) {
            int64_t got = native.ReadAt(position, out + done, remaining);
            if (got <= 0) {
                ++readFailures;
                break;
            }
            done += got;
            position += got;
            continue;
        }
        windowStart = position;
        windowBytes = native.ReadAt(position, window.data(), kBufferBytes);
        if (windowBytes <= 0) {
            windowBytes = 0;
            ++readFailures;
            break;
        }
    }
    return static_cast<int>(done);
}

int LxFileStream::Write(const void* buffer, int bytes) {
    if (!IsOpen() || !writable || bytes <= 0) return 0;
    if (lostPosition || LxFaultInjection::ShouldFail(LxFaultInjection::kWrite)) {
        ++writeFailures;
        return 0;
    }
    const auto* in = static_cast<const unsigned char*>(buffer);
    int64_t done = 0;
    while (done < bytes) {
        int64_t remaining = bytes - done;
        bool inWindow = windowBytes > 0 && position >= windowStart && position <= windowStart + windowBytes &&
                        position < windowStart + kBufferBytes;
        if (!inWindow) {
            if (!WriteBack()) break;
            windowBytes = 0;
            if (remaining >= kBufferBytes) {
                int64_t written = WriteToDisk(position, in + done, remaining);
                if (written > 0) {
                    done += written;
                    position += written;
                    size = std::max(size, position);
                }
                if (written != remaining) {
                    ++writeFailures;
                    break;
                }
                continue;
            }
            windowStart = position;
        }
        int64_t offset = position - windowStart;
        int64_t n = std::min(remaining, kBufferBytes - offset);
        std::memcpy(window.data() + offset, in + done, static_cast<size_t>(n));
        if (dirtyHi <= dirtyLo) {
            dirtyLo = offset;
            dirtyHi = offset + n;
        } else {
            dirtyLo = std::min(dirtyLo, offset);
            dirtyHi = std::max(dirtyHi, offset + n);
        }
        windowBytes = std::max(windowBytes, offset + n);
        done += n;
        position += n;
        size = std::max(size, position);
    }
    return static_cast<int>(done);
}

bool LxFileStream::Seek(int64_t offset, LxSeekOrigin origin) {
    if (!IsOpen()) return false;
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kSeek)) {
        lostPosition = true;
        return false;
    }
    int64_t base = origin == kLxSeekBegin ? 0 : origin == kLxSeekCurrent ? position : size;
    int64_t target = base + offset;
    if (target < 0) return false;
    position = target;
    lostPosition = false;
    return true;
}

bool LxFileStream::Truncate() {
    if (!IsOpen() || !writable) return false;
    // Cutting a file to the length it has changes nothing, so the system is not
    // asked to (ext4 takes any cut to zero as a file being replaced, and then
    // writes it to disk when it is closed: a working file that was only ever
    // emptied would go to disk just before it is deleted).
    if (!lostPosition && position == size && dirtyHi <= dirtyLo && native.Size() == size) return true;
    if (lostPosition || !WriteBack() || !native.Truncate(position)) {
        ++writeFailures;
        return false;
    }
    size = position;
    if (windowStart + windowBytes > position) windowBytes = std::max<int64_t>(0, position - windowStart);
    return true;
}

bool LxFileStream::Flush() {
    if (!IsOpen()) return false;
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kFlush)) {
        ++writeFailures;
        return false;
    }
    return WriteBack();
}

bool LxFileStream::Sync() {
    if (!Flush()) return false;
    if (native.Sync()) return true;
    ++writeFailures;
    return false;
}

void LxFileStream::Close() {
    if (!IsOpen()) return;
    WriteBack();
    native.Close();
    windowBytes = 0;
}
