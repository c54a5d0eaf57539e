#pragma once
// What the tool needs from the file system beyond the platform library: the
// process IDs that name temporary files, directory syncs after a rename, and
// output files that appear whole or not at all.
//
// An output (an exported WAV file, a mix, a waveform picture) is written as
// "NAME.PID.lxpart" beside its final name, forced to disk and only then renamed
// to NAME, so that a command killed half-way never leaves half a file under the
// name the user asked for. A part file whose process is gone is removed by the
// next command that works in that folder (RemoveStalePartFiles).
#include <cstdint>
#include <string>

namespace LxCliFileSystem {

int ProcessID();
// False only when no process with that ID runs (one we may not signal still runs).
bool ProcessIsAlive(int pid);
// Makes a rename (or a new file) in directory survive a power cut (POSIX; on
// Windows the rename itself is written through).
void SyncDirectory(const std::string& directory);
// The folder a path lies in ("." for a bare name).
std::string FolderOf(const std::string& path);
// Bytes of a file, or of the files directly inside a directory; 0 when missing.
int64_t SizeOnDisk(const std::string& path);
// Removes the part files in folder whose writing process has ended; how many.
int RemoveStalePartFiles(const std::string& folder);

}  // namespace LxCliFileSystem

// One output file written through a part file (see above). Whatever is not
// committed is deleted when the object goes.
class LxCliOutputFile {
public:
    explicit LxCliOutputFile(std::string path);
    ~LxCliOutputFile();
    LxCliOutputFile(const LxCliOutputFile&) = delete;
    LxCliOutputFile& operator=(const LxCliOutputFile&) = delete;

    // Where the writer writes.
    const std::string& PartPath() const { return part_; }
    // Forces the part file to disk and renames it to the final name; false
    // (with why) when that fails, and the part file is gone then.
    bool Commit(std::string& why);

    static constexpr const char* kSuffix = ".lxpart";

private:
    std::string path_;
    std::string part_;
    bool committed_ = false;
};
