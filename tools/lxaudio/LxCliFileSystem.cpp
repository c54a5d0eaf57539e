#include "LxCliFileSystem.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include "LxAudioCore.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"

namespace fs = std::filesystem;

namespace LxCliFileSystem {

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
        if (*end != '\0' || pid <= 0 || LxProcess::IsRunning(static_cast<int>(pid))) continue;
        std::error_code ignored;
        removed += fs::remove(entry.path(), ignored) ? 1 : 0;
    }
    return removed;
}

}  // namespace LxCliFileSystem

LxCliOutputFile::LxCliOutputFile(std::string outputPath, std::string what) : path(std::move(outputPath)) {
    const std::string name = "." + std::to_string(LxProcess::CurrentID()) + kSuffix;
    // A device is written through the name given: the system follows links
    // that a path cannot spell (/dev/stdout leads to "pipe:[...]").
    if (LxFileUtil::IsDeviceOrPipe(LxFile(LxString(path)))) {
        device = true;
        target = path;
        const std::string problem = LxCliFileSafety::TemporaryFolderProblem();
        if (!problem.empty())
            throw LxCliFailure(what, path, "a device or a pipe is written from a finished copy, but " + problem);
        const std::string temporary = LxFileUtil::GetTemporaryDirectoryName().str();
        part = (fs::path(temporary) / (fs::path(target).filename().string() + name)).string();
        LxCliFileSystem::RemoveStalePartFiles(temporary);
        return;
    }
    target = LxFileUtil::ResolveSymbolicLinks(LxFile(LxString(path))).GetPath().str();
    const LxFile targetFile{LxString(target)};
    if (targetFile.IsDirectory()) throw LxCliFailure(what, path, "it is a folder");
    if (LxFileUtil::IsReadOnly(targetFile)) throw LxCliFailure(what, path, "read-only; not replaced");
    const std::string folder = LxCliFileSystem::FolderOf(target);
    const LxFile folderFile{LxString(folder)};
    if (!folderFile.IsDirectory()) throw LxCliFailure(what, path, "its folder '" + folder + "' does not exist");
    if (!LxFileUtil::IsWritableDirectory(folderFile))
        throw LxCliFailure(what, path, "its folder '" + folder + "' cannot be written");
    part = target + name;
    // Part files of this name left by writers that are gone.
    LxCliFileSystem::RemoveStalePartFiles(folder);
}

LxCliOutputFile::~LxCliOutputFile() {
    if (committed) return;
    std::error_code ignored;
    fs::remove(fs::path(part), ignored);
}

bool LxCliOutputFile::Commit(std::string& why) {
    std::error_code error;
    if (device) {
        const bool written = LxFileUtil::CopyFileIntoDevice(LxFile(LxString(part)), LxFile(LxString(target)));
        fs::remove(fs::path(part), error);
        if (!written) {
            why = "writing into it failed";
            return false;
        }
        committed = true;
        return true;
    }
    {
        auto file = LxStreamUtil::CreateFileStreamReadWrite(LxFile(LxString(part)), kLxStreamReadWrite,
                                                            kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (!file || !file->Sync()) {
            why = "the file could not be forced to disk";
            fs::remove(fs::path(part), error);
            return false;
        }
    }
    // A file written over keeps the permissions and owner it had.
    const LxFile targetFile{LxString(target)};
    if (targetFile.Exists()) LxFileUtil::CopyOwnerAndMode(targetFile, LxFile(LxString(part)));
    if (!LxFile(LxString(part)).RenameTo(targetFile)) {
        why = "the finished file could not take its name";
        fs::remove(fs::path(part), error);
        return false;
    }
    committed = true;
    LxFileUtil::SyncDirectory(LxFile(LxString(LxCliFileSystem::FolderOf(target))));
    return true;
}
