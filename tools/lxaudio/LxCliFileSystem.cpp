#include "LxCliFileSystem.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include "LxAudioCore.h"
#ifndef _WIN32
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#else
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

namespace fs = std::filesystem;

namespace LxCliFileSystem {

int ProcessID() {
#ifdef _WIN32
    return static_cast<int>(GetCurrentProcessId());
#else
    return static_cast<int>(::getpid());
#endif
}

bool ProcessIsAlive(int pid) {
#ifdef _WIN32
    if (pid <= 0) return false;
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    // A process that may not be opened still exists.
    if (process == nullptr) return GetLastError() == ERROR_ACCESS_DENIED;
    bool alive = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return alive;
#else
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
#endif
}

void SyncDirectory(const std::string& directory) {
#ifndef _WIN32
    int fd = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
#else
    (void)directory;
#endif
}

std::string FolderOf(const std::string& path) {
    fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

int64_t SizeOnDisk(const std::string& path) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        auto size = fs::file_size(path, error);
        return error ? 0 : static_cast<int64_t>(size);
    }
    int64_t total = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
        auto size = entry.file_size(error);
        if (!error) total += static_cast<int64_t>(size);
    }
    return total;
}

int RemoveStalePartFiles(const std::string& folder) {
    // "NAME.PID.lxpart": the writer's ID sits between the last two dots.
    const std::string suffix = LxCliOutputFile::kSuffix;
    int removed = 0;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            continue;
        const std::string stem = name.substr(0, name.size() - suffix.size());
        const size_t dot = stem.rfind('.');
        if (dot == std::string::npos || dot + 1 == stem.size()) continue;
        char* end = nullptr;
        const long pid = std::strtol(stem.c_str() + dot + 1, &end, 10);
        if (*end != '\0' || pid <= 0 || ProcessIsAlive(static_cast<int>(pid))) continue;
        std::error_code ignored;
        removed += fs::remove(entry.path(), ignored) ? 1 : 0;
    }
    return removed;
}

}  // namespace LxCliFileSystem

LxCliOutputFile::LxCliOutputFile(std::string path)
    : path_(std::move(path)), part_(path_ + "." + std::to_string(LxCliFileSystem::ProcessID()) + kSuffix) {
    // Part files of this name left by writers that are gone.
    LxCliFileSystem::RemoveStalePartFiles(LxCliFileSystem::FolderOf(path_));
}

LxCliOutputFile::~LxCliOutputFile() {
    if (committed_) return;
    std::error_code ignored;
    fs::remove(fs::path(part_), ignored);
}

bool LxCliOutputFile::Commit(std::string& why) {
    std::error_code error;
    {
        auto file = LxStreamUtil::CreateFileStreamReadWrite(LxFile(LxString(part_)), kLxStreamReadWrite, 0x3f3f3f3f,
                                                            0x3f3f3f3f);
        if (!file || !file->Sync()) {
            why = "the file could not be forced to disk";
            fs::remove(fs::path(part_), error);
            return false;
        }
    }
    if (!LxFile(LxString(part_)).RenameTo(LxFile(LxString(path_)))) {
        why = "the finished file could not take its name";
        fs::remove(fs::path(part_), error);
        return false;
    }
    committed_ = true;
    LxCliFileSystem::SyncDirectory(LxCliFileSystem::FolderOf(path_));
    return true;
}
