#pragma once
// Finding and recovering what interrupted controllers left behind.
//
// A controller's working directory holds a lock file for the controller's whole
// life, and a capture journal for every capture that has not yet been committed
// by a save (see LxAudioController). A working directory whose lock is free is a
// leftover: its process ended without deleting it. Recovery turns each journal
// into a new clip (source: recording) of any controller, sample for sample as
// the capture would have stored it, up to the last buffer the journal holds
// intact. Nothing here deletes a leftover unless DeleteLeftover is called.
#include <map>
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxAudioLeftover.h"
#include "LxPublic/LxFile.h"

class LxAudioController;

class LXAUDIOCORE_API LxAudioRecovery {
public:
    // The name of the lock file inside every working directory.
    static const char* const kLockFileName;

    // Every leftover working directory directly inside parentDirectory (a
    // directory that holds a free lock file), in name order. Directories
    // held by a live controller are never listed.
    static std::vector<LxAudioLeftover> FindLeftovers(const LxFile& parentDirectory);
    // Reads one directory's recordings; false (and an assertion report naming
    // the directory) when it is held by a live controller or is not a working
    // directory.
    static bool ReadLeftover(const LxFile& directory, LxAudioLeftover& leftover);
    // Adds every recording of the leftover that holds audio to controller's
    // store as a new clip (source: recording), oldest first, and appends their
    // IDs to clipIDs. The leftover is locked meanwhile, so two processes never
    // recover the same one. Returns how many clips were added, -1 when the
    // leftover is held by someone else. Damage in a journal ends its audio at
    // the damage, with an assertion report naming the journal.
    static int RecoverRecordings(LxAudioController& controller, const LxAudioLeftover& leftover,
                                 std::vector<int>& clipIDs);
    // Copies every clip of the store that a leftover holds into controller's
    // store as a new clip, page by page (a process killed outside a capture
    // leaves its working store behind: every stored clip was handed to the
    // operating system when it was stored). idMap receives old ID -> new ID.
    // A clip whose record or pages are damaged is left out, with an assertion
    // report naming it. Returns how many clips were copied: 0 when the leftover
    // holds no store, -1 when it is held by someone else. The leftover is not
    // changed (the copy reads a scratch copy of its files).
    static int CopyStoredClips(LxAudioController& controller, const LxAudioLeftover& leftover,
                               std::map<int, int>& idMap);
    // Deletes the leftover directory with everything in it; false when it is
    // held by a live controller, or could not be deleted.
    static bool DeleteLeftover(const LxAudioLeftover& leftover);
};
