#include "LxFileStream.h"

#include <algorithm>
#include <cstring>
#include "LxPublic/LxFaultInjection.h"

LxFileStream::~LxFileStream() { Close(); }

int64_t LxFileStream::WriteToDisk(int64_t offset, const void* buffer, int64_t bytes) {
    const int64_t allowed = LxFaultInjection::AllowDiskBytes(bytes);
    if (allowed <= 0) return 0;
    return native_.WriteAt(offset, buffer, allowed);
}

bool LxFileStream::Open(const LxFile& file, LxNativeFile::OpenMode mode) {
    if (!native_.Open(file, mode)) return false;
    writable_ = mode != LxNativeFile::kOpenRead;
    window_.assign(static_cast<size_t>(kBufferBytes), 0);
    windowStart_ = windowBytes_ = dirtyLo_ = dirtyHi_ = position_ = 0;
    size_ = native_.Size();
    if (size_ < 0) {
        native_.Close();
        return false;
    }
    return true;
}

bool LxFileStream::WriteBack() {
    if (dirtyHi_ <= dirtyLo_) return true;
    int64_t bytes = dirtyHi_ - dirtyLo_;
    int64_t written = WriteToDisk(windowStart_ + dirtyLo_, window_.data() + dirtyLo_, bytes);
    dirtyLo_ = dirtyHi_ = 0;
    if (written != bytes) {
        ++writeFailures_;
        // The file holds less than the stream reported; make the length honest.
        int64_t fileSize = native_.Size();
        if (fileSize >= 0) size_ = fileSize;
        windowBytes_ = 0;
        return false;
    }
    return true;
}

int LxFileStream::Read(void* buffer, int bytes) {
    if (!IsOpen() || bytes <= 0) return 0;
    if (lostPosition_ || LxFaultInjection::ShouldFail(LxFaultInjection::kRead)) {
        ++readFailures_;
        return 0;
    }
    if (position_ >= size_) return 0;
    int64_t wanted = std::min<int64_t>(bytes, size_ - position_);
    auto* out = static_cast<unsigned char*>(buffer);
    int64_t done = 0;
    while (done < wanted) {
        if (position_ >= windowStart_ && position_ < windowStart_ + windowBytes_) {
            int64_t n = std::min(wanted - done, windowStart_ + windowBytes_ - position_);
            std::memcpy(out + done, window_.data() + (position_ - windowStart_), static_cast<size_t>(n));
            done += n;
            position_ += n;
            continue;
        }
        if (!WriteBack()) break;
        int64_t remaining = wanted - done;
        if (remaining >= kBufferBytes) {
            int64_t got = native_.ReadAt(position_, out + done, remaining);
            if (got <= 0) {
                ++readFailures_;
                break;
            }
            done += got;
            position_ += got;
            continue;
        }
        windowStart_ = position_;
        windowBytes_ = native_.ReadAt(position_, window_.data(), kBufferBytes);
        if (windowBytes_ <= 0) {
            windowBytes_ = 0;
            ++readFailures_;
            break;
        }
    }
    return static_cast<int>(done);
}

int LxFileStream::Write(const void* buffer, int bytes) {
    if (!IsOpen() || !writable_ || bytes <= 0) return 0;
    if (lostPosition_ || LxFaultInjection::ShouldFail(LxFaultInjection::kWrite)) {
        ++writeFailures_;
        return 0;
    }
    const auto* in = static_cast<const unsigned char*>(buffer);
    int64_t done = 0;
    while (done < bytes) {
        int64_t remaining = bytes - done;
        bool inWindow = windowBytes_ > 0 && position_ >= windowStart_ && position_ <= windowStart_ + windowBytes_ &&
                        position_ < windowStart_ + kBufferBytes;
        if (!inWindow) {
            if (!WriteBack()) break;
            windowBytes_ = 0;
            if (remaining >= kBufferBytes) {
                int64_t written = WriteToDisk(position_, in + done, remaining);
                if (written > 0) {
                    done += written;
                    position_ += written;
                    size_ = std::max(size_, position_);
                }
                if (written != remaining) {
                    ++writeFailures_;
                    break;
                }
                continue;
            }
            windowStart_ = position_;
        }
        int64_t offset = position_ - windowStart_;
        int64_t n = std::min(remaining, kBufferBytes - offset);
        std::memcpy(window_.data() + offset, in + done, static_cast<size_t>(n));
        if (dirtyHi_ <= dirtyLo_) {
            dirtyLo_ = offset;
            dirtyHi_ = offset + n;
        } else {
            dirtyLo_ = std::min(dirtyLo_, offset);
            dirtyHi_ = std::max(dirtyHi_, offset + n);
        }
        windowBytes_ = std::max(windowBytes_, offset + n);
        done += n;
        position_ += n;
        size_ = std::max(size_, position_);
    }
    return static_cast<int>(done);
}

bool LxFileStream::Seek(int64_t offset, LxSeekOrigin origin) {
    if (!IsOpen()) return false;
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kSeek)) {
        lostPosition_ = true;
        return false;
    }
    int64_t base = origin == kLxSeekBegin ? 0 : origin == kLxSeekCurrent ? position_ : size_;
    int64_t target = base + offset;
    if (target < 0) return false;
    position_ = target;
    lostPosition_ = false;
    return true;
}

bool LxFileStream::Truncate() {
    if (!IsOpen() || !writable_) return false;
    if (lostPosition_ || !WriteBack() || !native_.Truncate(position_)) {
        ++writeFailures_;
        return false;
    }
    size_ = position_;
    if (windowStart_ + windowBytes_ > position_) windowBytes_ = std::max<int64_t>(0, position_ - windowStart_);
    return true;
}

bool LxFileStream::Flush() {
    if (!IsOpen()) return false;
    if (LxFaultInjection::ShouldFail(LxFaultInjection::kFlush)) {
        ++writeFailures_;
        return false;
    }
    return WriteBack();
}

bool LxFileStream::Sync() {
    if (!Flush()) return false;
    if (native_.Sync()) return true;
    ++writeFailures_;
    return false;
}

void LxFileStream::Close() {
    if (!IsOpen()) return;
    WriteBack();
    native_.Close();
    windowBytes_ = 0;
}
