#include "LxPublic/LxFileUtil.h"

#include <atomic>
#include <chrono>
#include <random>
#include <system_error>
#include "LxPathUtil.h"

namespace fs = std::filesystem;

LxFile LxFileUtil::CreateUniqueTempDir(const LxString& prefix, const LxString& suffix, bool inSystemTemp) {
    static std::atomic<unsigned> counter{0};
    std::error_code ec;
    fs::path base = inSystemTemp ? fs::temp_directory_path(ec) : fs::current_path(ec);
    if (ec) return LxFile();
    std::random_device device;
    std::mt19937_64 random(device() ^ static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
    for (int attempt = 0; attempt < 100; ++attempt) {
        LxString name = prefix;
        name.AppendNumber(static_cast<long long>(random() % 1000000000ULL));
        name += "-";
        name.AppendNumber(counter.fetch_add(1));
        name += suffix;
        fs::path candidate = base / LxPathUtil::ToNative(name);
        if (fs::create_directory(candidate, ec) && !ec) return LxFile(LxPathUtil::FromNative(candidate));
    }
    return LxFile();
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
