#include "LxPublic/LxFile.h"

#include <system_error>
#include "LxPathUtil.h"
#include "LxPublic/LxFileUtil.h"

namespace fs = std::filesystem;

LxFile LxFile::GetChild(const LxString& name) const {
    LxString path = path_;
    if (!path.IsEmpty()) {
        char last = path.str().back();
        if (last != '/' && last != '\\') path += LxFileUtil::GetDirectorySeparator();
    }
    return LxFile(path + name);
}

LxString LxFile::GetName() const { return LxPathUtil::FromNative(LxPathUtil::ToNative(path_).filename()); }

bool LxFile::Exists() const {
    std::error_code ec;
    return !path_.IsEmpty() && fs::exists(LxPathUtil::ToNative(path_), ec);
}

bool LxFile::IsDirectory() const {
    std::error_code ec;
    return !path_.IsEmpty() && fs::is_directory(LxPathUtil::ToNative(path_), ec);
}

int64_t LxFile::GetLength() const {
    std::error_code ec;
    if (path_.IsEmpty()) return -1;
    auto size = fs::file_size(LxPathUtil::ToNative(path_), ec);
    return ec ? -1 : static_cast<int64_t>(size);
}

bool LxFile::Delete() const {
    if (path_.IsEmpty()) return false;
    std::error_code ec;
    fs::path native = LxPathUtil::ToNative(path_);
    if (fs::is_directory(native, ec)) return false;
    fs::remove(native, ec);
    return !fs::exists(native, ec);
}

bool LxFile::CreateDirectories() const {
    if (path_.IsEmpty()) return false;
    std::error_code ec;
    fs::path native = LxPathUtil::ToNative(path_);
    fs::create_directories(native, ec);
    return fs::is_directory(native, ec);
}

bool LxFile::RenameTo(const LxFile& target) const {
    std::error_code ec;
    fs::rename(LxPathUtil::ToNative(path_), LxPathUtil::ToNative(target.path_), ec);
    return !ec;
}
