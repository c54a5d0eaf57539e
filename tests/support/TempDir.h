#pragma once
// A unique scratch directory, deleted with everything in it at the end of scope.
#include "LxPublic/LxFile.h"
#include "LxPublic/LxFileUtil.h"

class TempDir {
public:
    TempDir() : dir_(LxFileUtil::CreateUniqueTempDir("LxTest")) {}
    ~TempDir() { LxFileUtil::DeleteDirectory(dir_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const LxFile& Dir() const { return dir_; }
    // Path of a file (or sub-directory) inside.
    LxFile Child(const char* name) const { return dir_.GetChild(name); }

private:
    LxFile dir_;
};
