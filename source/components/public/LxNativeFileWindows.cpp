#include "LxNativeFile.h"

#include "LxWindows.h"

#include <algorithm>
#include <string>
#include "LxPathUtil.h"

// Files are opened by their UTF-16 name (the UTF-8 path converted once here), with
// sharing that matches what the POSIX build allows: other handles may read, write,
// rename or delete the file while it is open. Positional transfers go through an
// OVERLAPPED offset on a synchronous handle, so concurrent readers never race on a
// shared file pointer.

namespace {

// ReadFile and WriteFile take a DWORD count: large transfers go in pieces.
constexpr int64_t kMaxChunk = int64_t{1} << 30;

HANDLE AsHandle(void* handle) { return static_cast<HANDLE>(handle); }

OVERLAPPED OffsetOf(int64_t offset) {
    OVERLAPPED overlapped{};
    overlapped.Offset = static_cast<DWORD>(static_cast<uint64_t>(offset) & 0xffffffffu);
    overlapped.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
    return overlapped;
}

}  // namespace

LxNativeFile::~LxNativeFile() { Close(); }

bool LxNativeFile::Open(const LxFile& file, OpenMode mode) {
    Close();
    if (file.GetPath().IsEmpty()) return false;
    std::wstring name = LxPathUtil::ToNative(file.GetPath()).wstring();
    DWORD access = GENERIC_READ;
    DWORD disposition = OPEN_EXISTING;
    switch (mode) {
        case kOpenRead: break;
        case kOpenReadWrite:
            access |= GENERIC_WRITE;
            disposition = OPEN_ALWAYS;
            break;
        case kOpenTruncate:
            access |= GENERIC_WRITE;
            disposition = CREATE_ALWAYS;
            break;
    }
    HANDLE opened = CreateFileW(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return false;
    handle = opened;
    // Only regular files: not a console, a pipe or a device name such as "NUL".
    if (GetFileType(opened) != FILE_TYPE_DISK) {
        Close();
        return false;
    }
    return true;
}

bool LxNativeFile::IsOpen() const { return handle != nullptr; }

int64_t LxNativeFile::ReadAt(int64_t offset, void* buffer, int64_t bytes) {
    if (handle == nullptr || offset < 0) return 0;
    auto* out = static_cast<char*>(buffer);
    int64_t done = 0;
    while (done < bytes) {
        DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxChunk));
        DWORD got = 0;
        OVERLAPPED at = OffsetOf(offset + done);
        // Reading at or past the end fails with ERROR_HANDLE_EOF: a short read, as with pread.
        if (!ReadFile(AsHandle(handle), out + done, want, &got, &at) || got == 0) break;
        done += got;
    }
    return done;
}

int64_t LxNativeFile::WriteAt(int64_t offset, const void* buffer, int64_t bytes) {
    if (handle == nullptr || offset < 0) return 0;
    const auto* in = static_cast<const char*>(buffer);
    int64_t done = 0;
    while (done < bytes) {
        DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxChunk));
        DWORD put = 0;
        OVERLAPPED at = OffsetOf(offset + done);
        if (!WriteFile(AsHandle(handle), in + done, want, &put, &at) || put == 0) break;
        done += put;
    }
    return done;
}

int64_t LxNativeFile::Size() {
    if (handle == nullptr) return -1;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(AsHandle(handle), &size)) return -1;
    return static_cast<int64_t>(size.QuadPart);
}

int64_t LxNativeFile::CopyTo(LxNativeFile& target, int64_t offset, int64_t targetOffset, int64_t bytes) {
    if (handle == nullptr || target.handle == nullptr || offset < 0 || targetOffset < 0 || bytes <= 0) return 0;
    return CopyThroughBuffer(target, offset, targetOffset, bytes);
}

// Windows starts writing on its own; FlushFileBuffers (Sync) waits for it.
void LxNativeFile::StartWriteBack(int64_t, int64_t) {}

bool LxNativeFile::Truncate(int64_t size) {
    if (handle == nullptr || size < 0) return false;
    // Sets the end of file without moving the file pointer (all transfers are positional).
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = size;
    return SetFileInformationByHandle(AsHandle(handle), FileEndOfFileInfo, &end, sizeof(end)) != 0;
}

bool LxNativeFile::Sync() { return handle != nullptr && FlushFileBuffers(AsHandle(handle)) != 0; }

void LxNativeFile::Close() {
    if (handle != nullptr) {
        CloseHandle(AsHandle(handle));
        handle = nullptr;
    }
}
