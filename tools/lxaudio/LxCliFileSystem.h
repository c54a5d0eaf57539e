#pragma once
// What the tool needs from the file system beyond the platform library: the
// folder of a path, sizes on disk, and output files that appear whole or not at
// all.
//
// An output (an exported WAV file, a mix, a waveform picture) is written as
// "NAME.PID.lxpart" beside its final name, forced to disk and only then renamed
// to NAME, so that a command killed half-way never leaves half a file under the
// name the user asked for. A part file whose process is gone is removed by the
// next command that works in that folder (RemoveStalePartFiles).
#include <cstdint>
#include <string>

namespace LxCliFileSystem {

// The folder a path lies in ("." for a bare name).
std::string FolderOf(const std::string& path);
// Bytes of a file, or of the files directly inside a directory; 0 when missing.
int64_t SizeOnDisk(const std::string& path);
// Removes the part files in folder whose writing process has ended; how many.
int RemoveStalePartFiles(const std::string& folder);

}  // namespace LxCliFileSystem

// One output file written through a part file (see above). Whatever is not
// committed is deleted when the object goes.
//
// An output named through a symbolic link is written to the link's target (the
// part file beside the target), so the link stays. An output that is a device or
// a named pipe (/dev/null, a FIFO) is never renamed over: the part file is made
// in the system's temporary folder, since a WAV file's header is finished last,
// and its bytes are then written into the device in one pass.
class LxCliOutputFile {
public:
    // what begins the messages ("cannot export to"). Throws LxCliFailure when
    // outputPath cannot take an output: it is a folder, or read-only, or its
    // folder is missing or cannot be written (for a device: the temporary folder).
    LxCliOutputFile(std::string outputPath, std::string what);
    ~LxCliOutputFile();
    LxCliOutputFile(const LxCliOutputFile&) = delete;
    LxCliOutputFile& operator=(const LxCliOutputFile&) = delete;

    // Where the writer writes.
    const std::string& PartPath() const { return part; }
    // Forces the part file to disk and renames it to the final name (or writes
    // it into the device); false (with why) when that fails, and the part file
    // is gone then.
    bool Commit(std::string& why);

    static constexpr const char* kSuffix = ".lxpart";

private:
    std::string path;    // as the user named it
    std::string target;  // where the output lands: path with its symbolic links followed
    std::string part;
    bool device = false;
    bool committed = false;
};
