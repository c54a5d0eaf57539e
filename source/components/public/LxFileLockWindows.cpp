#include "LxPublic/LxFileLock.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <string>
#include "LxPathUtil.h"

namespace {

// The lock is on the file's first byte; LockFileEx locks belong to the handle,
// so a second handle on the same file, even in this process, conflicts with it.
HANDLE OpenLockFile(const LxFile& file, DWORD disposition) {
    std::wstring name = LxPathUtil::ToNative(file.GetPath()).wstring();
    return CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool LockFirstByte(HANDLE handle) {
    OVERLAPPED first{};
    return LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &first) != 0;
}

}  // namespace

LxFileLock::~LxFileLock() { Unlock(); }

bool LxFileLock::TryLock(const LxFile& file) {
    Unlock();
    HANDLE handle = OpenLockFile(file, OPEN_ALWAYS);
    if (handle == INVALID_HANDLE_VALUE) return false;
    if (!LockFirstByte(handle)) {
        CloseHandle(handle);
        return false;
    }
    handle_ = handle;
    return true;
}

void LxFileLock::Unlock() {
    if (handle_ != nullptr) {
        // Closing the handle releases its locks.
        CloseHandle(static_cast<HANDLE>(handle_));
        handle_ = nullptr;
    }
}

bool LxFileLock::IsLocked() const { return handle_ != nullptr; }

bool LxFileLock::IsHeld(const LxFile& file) {
    HANDLE handle = OpenLockFile(file, OPEN_EXISTING);
    if (handle == INVALID_HANDLE_VALUE) return false;
    bool held = !LockFirstByte(handle);
    CloseHandle(handle);
    return held;
}
