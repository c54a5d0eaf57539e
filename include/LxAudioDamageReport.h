#pragma once
// What a verified load (LxAudioFile::ReadVerifiedFrom, LxAudioController::
// ReadVerifiedFrom) found in a saved store: the damage, named by member and
// chunk, and the clips it touches. A clip is intact when its record, its entry
// in the clip table and every page it plays (record, data and thumbnail) are
// as they were saved; every other clip is named with why.
//
// With an integrity record, every byte the clips depend on is checked against
// its checksum. Without one (a store saved by a plain save), only what the
// store's structure allows is checked: chunk files missing below the count, a
// count file that disagrees with the chunks, a clip table pointing past the
// clip data, page records with impossible values or ranges outside their
// members. Such a store is reported as not verified.
#include <map>
#include <set>
#include <string>
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxAudioDamage.h"

struct LXAUDIOCORE_API LxAudioDamageReport {
    // Whether the store's bytes were loaded (in part, when damaged). False when
    // nothing could be read as a store; the store is then left as it was.
    bool loaded = false;
    // Whether an intact integrity record vouched for the clips; false for a
    // store saved without one, or whose record is damaged itself.
    bool verified = false;
    std::vector<LxAudioDamage> damage;
    // Clips whose audio is exactly what was saved (or, when not verified, that
    // pass every structural check), ascending.
    std::vector<int> intactClips;
    // Damaged clips and why ("pages 216, 252 damaged", "its record is damaged").
    std::map<int, std::string> damagedClips;
    // Damaged clips whose own record (the list of page ranges) is lost: they
    // cannot be salvaged even with silence in their holes.
    std::set<int> unreadableClips;
    // Page IDs whose record, data or thumbnail is damaged, and among them those
    // whose record itself is (so their length and format are lost too).
    std::set<int> damagedPages;
    std::set<int> damagedPageRecords;
    // The clip table salvage works from: clip ID -> position of the clip's
    // record in "clip.lxa", from the integrity record when it could be read
    // (so that a lost "map.lxa" loses no clip), else from the loaded table.
    std::map<int, unsigned int> clipTable;

    bool IsDamaged() const { return !damage.empty(); }
    // One finding in words: "raw.lxa2: checksum differs", "pcm.lxa, chunk 1
    // (bytes 0 to 1048575): checksum differs".
    static std::string Describe(const LxAudioDamage& damage);
    // Every finding, one per line, then the damaged clips.
    std::string Summary() const;
};
