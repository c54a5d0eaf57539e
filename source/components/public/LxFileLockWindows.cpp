#include "LxPublic/LxFileLock.h"

#include "LxWindows.h"

#include <filesystem>
#include <string>
#include <system_error>
#include "LxPathUtil.h"

namespace {

// The lock is on the file's first byte; LockFileEx locks belong to the handle,
// so a second handle on the same file, even in this process, conflicts with it.
HANDLE OpenLockFile(const std::filesystem::path& path, DWORD disposition, DWORD attributes) {
    return CreateFileW(path.wstring().c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition, attributes,
                       nullptr);
}

HANDLE OpenLockFile(const LxFile& file, DWORD disposition) {
    return OpenLockFile(LxPathUtil::ToNative(file.GetPath()), disposition, FILE_ATTRIBUTE_NORMAL);
}

bool LockFirstByte(HANDLE handle, LxFileLock::Mode mode) {
    OVERLAPPED first{};
    const DWORD exclusive = mode == LxFileLock::Mode::kExclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0;
    const DWORD flags = LOCKFILE_FAIL_IMMEDIATELY | exclusive;
    return LockFileEx(handle, flags, 0, 1, 0, &first) != 0;
}

}  // namespace

LxFileLock::~LxFileLock() { Unlock(); }

bool LxFileLock::TryLock(const LxFile& file, Mode mode) {
    Unlock();
    HANDLE opened = OpenLockFile(file, OPEN_ALWAYS);
    if (opened == INVALID_HANDLE_VALUE) return false;
    if (!LockFirstByte(opened, mode)) {
        CloseHandle(opened);
        return false;
    }
    handle = opened;
    return true;
}

LxFileLock::Result LxFileLock::LockWhatIsAt(const LxFile& path, Mode mode) {
    // The lock file outlives every rename over path: a lock held is still the
    // lock of what is there now.
    if (handle != nullptr) return Result::kLocked;
    const std::filesystem::path target = LxPathUtil::ToNative(path.GetPath());
    std::error_code error;
    if (!std::filesystem::exists(target, error)) return Result::kUnavailable;
    const std::filesystem::path lockPath = target.parent_path() / (L"." + target.filename().wstring() + L".lock");
    HANDLE opened = OpenLockFile(lockPath, OPEN_ALWAYS, FILE_ATTRIBUTE_HIDDEN);
    // A folder this process may not write: nothing can be locked there.
    if (opened == INVALID_HANDLE_VALUE) return Result::kUnavailable;
    if (!LockFirstByte(opened, mode)) {
        CloseHandle(opened);
        return Result::kBusy;
    }
    handle = opened;
    return Result::kLocked;
}

void LxFileLock::Unlock() {
    if (handle != nullptr) {
        // Closing the handle releases its locks.
        CloseHandle(static_cast<HANDLE>(handle));
        handle = nullptr;
    }
}

bool LxFileLock::IsLocked() const { return handle != nullptr; }

bool LxFileLock::IsHeld(const LxFile& file) {
    HANDLE probe = OpenLockFile(file, OPEN_EXISTING);
    if (probe == INVALID_HANDLE_VALUE) return false;
    bool held = !LockFirstByte(probe, Mode::kExclusive);
    CloseHandle(probe);
    return held;
}
