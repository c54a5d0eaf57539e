#include "LxPublic/LxFile.h"

#include <system_error>
#include "LxPathUtil.h"
#include "LxPublic/LxFileUtil.h"

namespace fs = std::filesystem;

LxFile LxFile::GetChild(const LxString& name) const {
    LxString child = path;
    if (!child.IsEmpty()) {
        char last = child.str().back();
        if (last != '/' && last != '\\') child += LxFileUtil::GetDirectorySeparator();
    }
    return LxFile(child + name);
}

LxString LxFile::GetName() const { return LxPathUtil::FromNative(LxPathUtil::ToNative(path).filename()); }

bool LxFile::Exists() const {
    std::error_code ec;
    return !path.IsEmpty() && fs::exists(LxPathUtil::ToNative(path), ec);
}

bool LxFile::IsDirectory() const {
    std::error_code ec;
    return !path.IsEmpty() && fs::is_directory(LxPathUtil::ToNative(path), ec);
}

int64_t LxFile::GetLength() const {
    std::error_code ec;
    if (path.IsEmpty()) return -1;
    auto size = fs::file_size(LxPathUtil::ToNative(path), ec);
    return ec ? -1 : static_cast<int64_t>(size);
}

bool LxFile::Delete() const {
    if (path.IsEmpty()) return false;
    std::error_code ec;
    fs::path native = LxPathUtil::ToNative(path);
    if (fs::is_directory(native, ec)) return false;
    fs::remove(native, ec);
    return !fs::exists(native, ec);
}

bool LxFile::CreateDirectories() const {
    if (path.IsEmpty()) return false;
    std::error_code ec;
    fs::path native = LxPathUtil::ToNative(path);
    fs::create_directories(native, ec);
    return fs::is_directory(native, ec);
}

bool LxFile::RenameTo(const LxFile& target) const {
    std::error_code ec;
    fs::rename(LxPathUtil::ToNative(path), LxPathUtil::ToNative(target.path), ec);
    return !ec;
}
