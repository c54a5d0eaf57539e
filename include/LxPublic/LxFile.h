#pragma once
// A file or directory named by a UTF-8 path. Holding an LxFile does not open
// anything; the queries and Delete go to the file system each time.
#include <cstdint>
#include "LxString.h"

class LXPUBLIC_API LxFile {
public:
    LxFile() = default;
    explicit LxFile(const LxString& filePath) : path(filePath) {}

    const LxString& GetPath() const { return path; }
    // The child "name" of this directory.
    LxFile GetChild(const LxString& name) const;
    // The final component of the path.
    LxString GetName() const;

    bool Exists() const;
    bool IsDirectory() const;
    // Length in bytes of a regular file; -1 when it does not exist.
    int64_t GetLength() const;
    // Deletes a regular file (not a directory). True when it is gone afterwards.
    bool Delete() const;
    // Creates this directory and any missing parents. True when it exists afterwards.
    bool CreateDirectories() const;
    // Renames over an existing target atomically where the OS allows it.
    bool RenameTo(const LxFile& target) const;

private:
    LxString path;
};
