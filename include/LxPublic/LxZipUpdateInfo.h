#pragma once
// What an incremental save into a directory changed, so that a host that packs
// the directory into an archive can update only those entries. Names are file
// names inside the directory.
#include <vector>
#include "LxString.h"

class LXPUBLIC_API LxZipUpdateInfo {
public:
    std::vector<LxString> addedFiles;
    std::vector<LxString> deletedFiles;
    std::vector<LxString> changedFiles;

    void Clear() { addedFiles.clear(); deletedFiles.clear(); changedFiles.clear(); }
};
