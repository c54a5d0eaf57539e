#pragma once
// Copies what can be saved of a store that a verified load found damaged into
// another store (LxAudioFile::SalvageInto): intact clips page by page in their
// stored form, and on request damaged clips with silence where their pages
// were lost.
#include <map>
#include <set>
#include "LxAudioDamageReport.h"

class LxAudioFile;

class LxStoreSalvager {
public:
    static int Run(LxAudioFile& source, LxAudioFile& target, const LxAudioDamageReport& report, bool fillDamaged,
                   std::map<int, int>& idMap, std::set<int>& patched);
};
