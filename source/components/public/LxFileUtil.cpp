#include "LxPublic/LxFileUtil.h"

#include <atomic>
#include <chrono>
#include <algorithm>
#include <random>
#include <system_error>
#include "LxPathUtil.h"
#include "LxPublic/LxFaultInjection.h"

namespace fs = std::filesystem;

namespace {

// A new directory inside base, named prefix + a random part + a counter +
// suffix, readable and writable by its owner only (a working directory holds a
// user's recordings).
LxFile CreateUniqueDirIn(const fs::path& base, const LxString& prefix, const LxString& suffix) {
    static std::atomic<unsigned> counter{0};
    std::error_code ec;
    std::random_device device;
    std::mt19937_64 random(device() ^ static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
    for (int attempt = 0; attempt < 100; ++attempt) {
        LxString name = prefix;
        name.AppendNumber(static_cast<long long>(random() % 1000000000ULL));
        name += "-";
        name.AppendNumber(counter.fetch_add(1));
        name += suffix;
        fs::path candidate = base / LxPathUtil::ToNative(name);
        if (fs::create_directory(candidate, ec) && !ec) {
            fs::permissions(candidate, fs::perms::owner_all, fs::perm_options::replace, ec);
            return LxFile(LxPathUtil::FromNative(candidate));
        }
    }
    return LxFile();
}

}  // namespace

LxFile LxFileUtil::CreateUniqueTempDir(const LxString& prefix, const LxString& suffix, bool inSystemTemp) {
    std::error_code ec;
    fs::path base = inSystemTemp ? fs::temp_directory_path(ec) : fs::current_path(ec);
    if (ec) return LxFile();
    return CreateUniqueDirIn(base, prefix, suffix);
}

LxFile LxFileUtil::CreateUniquePrivateDir(const LxFile& parent, const LxString& prefix) {
    if (parent.GetPath().IsEmpty()) return LxFile();
    std::error_code ec;
    fs::path base = LxPathUtil::ToNative(parent.GetPath());
    const bool existed = fs::is_directory(base, ec);
    fs::create_directories(base, ec);
    if (!fs::is_directory(base, ec)) return LxFile();
    // A parent made here holds nothing but private directories: it is private too.
    if (!existed) fs::permissions(base, fs::perms::owner_all, fs::perm_options::replace, ec);
    return CreateUniqueDirIn(base, prefix, "");
}

static std::vector<LxFile> ListEntries(const LxFile& directory, bool directories, const LxString& suffix) {
    std::vector<LxFile> found;
    std::error_code ec;
    const std::string ending = suffix.str();
    for (const fs::directory_entry& entry : fs::directory_iterator(LxPathUtil::ToNative(directory.GetPath()), ec)) {
        std::error_code kind;
        if (directories ? !entry.is_directory(kind) : !entry.is_regular_file(kind)) continue;
        LxString path = LxPathUtil::FromNative(entry.path());
        const std::string name = LxPathUtil::FromNative(entry.path().filename()).str();
        if (name.size() < ending.size() || name.compare(name.size() - ending.size(), ending.size(), ending) != 0)
            continue;
        found.emplace_back(path);
    }
    std::sort(found.begin(), found.end(),
              [](const LxFile& a, const LxFile& b) { return a.GetPath().str() < b.GetPath().str(); });
    return found;
}

std::vector<LxFile> LxFileUtil::ListDirectories(const LxFile& directory) { return ListEntries(directory, true, ""); }

std::vector<LxFile> LxFileUtil::ListFiles(const LxFile& directory, const LxString& suffix) {
    return ListEntries(directory, false, suffix);
}

bool LxFileUtil::CopyFile(const LxFile& source, const LxFile& target) {
    std::error_code ec;
    // Removed first: mingw's copy_file refuses to overwrite whatever the options say.
    fs::remove(LxPathUtil::ToNative(target.GetPath()), ec);
    ec.clear();
    fs::copy_file(LxPathUtil::ToNative(source.GetPath()), LxPathUtil::ToNative(target.GetPath()), ec);
    return !ec;
}

int64_t LxFileUtil::GetAvailableDiskSpace(const LxFile& path) {
    std::error_code ec;
    fs::space_info space = fs::space(LxPathUtil::ToNative(path.GetPath()), ec);
    if (ec || space.available == static_cast<std::uintmax_t>(-1)) return -1;
    const int64_t available = static_cast<int64_t>(std::min<std::uintmax_t>(space.available, INT64_MAX));
    const int64_t simulated = LxFaultInjection::GetDiskSpace();
    return simulated >= 0 ? std::min(available, simulated) : available;
}

bool LxFileUtil::DeleteDirectory(const LxFile& directory, bool recursive) {
    if (directory.GetPath().IsEmpty()) return false;
    std::error_code ec;
    fs::path native = LxPathUtil::ToNative(directory.GetPath());
    if (!fs::is_directory(native, ec)) return false;
    if (recursive) {
        fs::remove_all(native, ec);
    } else {
        fs::remove(native, ec);
    }
    return !fs::exists(native, ec);
}

LxString LxFileUtil::GetDirectorySeparator() {
#if defined(_WIN32)
    return LxString("\\");
#else
    return LxString("/");
#endif
}

bool LxFileUtil::IsSameFile(const LxFile& a, const LxFile& b) {
    if (a.GetPath().IsEmpty() || b.GetPath().IsEmpty()) return false;
    std::error_code ec;
    const bool same = fs::equivalent(LxPathUtil::ToNative(a.GetPath()), LxPathUtil::ToNative(b.GetPath()), ec);
    return !ec && same;
}

LxFile LxFileUtil::ResolveSymbolicLinks(const LxFile& file) {
    if (file.GetPath().IsEmpty()) return file;
    std::error_code ec;
    fs::path path = LxPathUtil::ToNative(file.GetPath());
    // As many links as the system itself follows before it gives up (ELOOP).
    for (int depth = 0; depth < 40; ++depth) {
        if (!fs::is_symlink(fs::symlink_status(path, ec))) return LxFile(LxPathUtil::FromNative(path));
        fs::path target = fs::read_symlink(path, ec);
        if (ec) return file;
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    return file;
}
