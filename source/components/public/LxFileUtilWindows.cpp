// LxFileUtil's functions that differ between systems: the Windows ones.
#include "LxPublic/LxFileUtil.h"

#include "LxWindows.h"

#include <algorithm>
#include <cwctype>
#include <random>
#include <string>
#include "LxPathUtil.h"

namespace {

std::wstring Wide(const LxFile& file) { return LxPathUtil::ToNative(file.GetPath()).wstring(); }

// The names that reach a device in any folder, with any extension ("NUL",
// "con.txt"), and the \\.\ namespace.
bool IsDeviceName(const std::wstring& path) {
    if (path.rfind(L"\\\\.\\", 0) == 0 || path.rfind(L"//./", 0) == 0) return true;
    std::wstring name = path.substr(path.find_last_of(L"\\/:") == std::wstring::npos ? 0 : path.find_last_of(L"\\/:") + 1);
    name = name.substr(0, name.find(L'.'));
    while (!name.empty() && (name.back() == L' ')) name.pop_back();
    std::transform(name.begin(), name.end(), name.begin(), [](wchar_t c) { return static_cast<wchar_t>(std::towupper(c)); });
    if (name == L"NUL" || name == L"CON" || name == L"PRN" || name == L"AUX" || name == L"CONIN$" || name == L"CONOUT$")
        return true;
    return name.size() == 4 && (name.rfind(L"COM", 0) == 0 || name.rfind(L"LPT", 0) == 0) && name[3] >= L'1' &&
           name[3] <= L'9';
}

}  // namespace

LxString LxFileUtil::GetTemporaryDirectoryName() {
    wchar_t buffer[MAX_PATH + 2];
    DWORD length = GetTempPathW(MAX_PATH + 2, buffer);
    if (length == 0 || length > MAX_PATH + 1) return LxString("");
    std::wstring path(buffer, length);
    if (path.size() > 3 && (path.back() == L'\\' || path.back() == L'/')) path.pop_back();
    return LxPathUtil::FromNative(std::filesystem::path(path));
}

bool LxFileUtil::IsDeviceOrPipe(const LxFile& file) {
    if (file.GetPath().IsEmpty()) return false;
    const std::wstring name = Wide(file);
    if (IsDeviceName(name)) return true;
    HANDLE handle = CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    const DWORD type = GetFileType(handle);
    CloseHandle(handle);
    return type == FILE_TYPE_CHAR || type == FILE_TYPE_PIPE;
}

bool LxFileUtil::IsWritableDirectory(const LxFile& directory) {
    if (!directory.IsDirectory()) return false;
    // Folder permissions are access lists: the one sure test is to make a file.
    std::random_device random;
    const std::wstring probe =
        Wide(directory) + L"\\.lxwrite-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(random());
    HANDLE handle = CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    CloseHandle(handle);
    return true;
}

bool LxFileUtil::IsReadOnly(const LxFile& file) {
    if (file.GetPath().IsEmpty()) return false;
    const DWORD attributes = GetFileAttributesW(Wide(file).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    // On a folder the attribute only marks it as customised; it protects nothing.
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return false;
    return (attributes & FILE_ATTRIBUTE_READONLY) != 0;
}

bool LxFileUtil::CopyOwnerAndMode(const LxFile& from, const LxFile& to) {
    // A new file takes the access rules of its folder, as the old one did, and
    // a read-only file is never replaced by a save.
    return from.Exists() && to.Exists();
}

bool LxFileUtil::CopyFileIntoDevice(const LxFile& source, const LxFile& target) {
    if (source.GetPath().IsEmpty() || target.GetPath().IsEmpty()) return false;
    HANDLE in = CreateFileW(Wide(source).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (in == INVALID_HANDLE_VALUE) return false;
    HANDLE out = CreateFileW(Wide(target).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (out == INVALID_HANDLE_VALUE) {
        CloseHandle(in);
        return false;
    }
    bool done = true;
    char buffer[1 << 16];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(in, buffer, sizeof buffer, &got, nullptr)) done = false;
        if (!done || got == 0) break;
        DWORD offset = 0;
        while (offset < got) {
            DWORD put = 0;
            if (!WriteFile(out, buffer + offset, got - offset, &put, nullptr) || put == 0) {
                done = false;
                break;
            }
            offset += put;
        }
        if (!done) break;
    }
    CloseHandle(in);
    CloseHandle(out);
    return done;
}

// NTFS writes a rename through to its journal itself: nothing to sync.
bool LxFileUtil::SyncDirectory(const LxFile&) { return true; }

// Windows has no call that swaps two names in one step.
bool LxFileUtil::ExchangeDirectories(const LxFile&, const LxFile&) { return false; }

bool LxFileUtil::CanRenameOverOpenFile() { return false; }
