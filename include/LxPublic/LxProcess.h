#pragma once
// Processes by their system ID: this one's, and whether another still runs.
// Files named after the process that writes them (a part file, a save in
// progress) are told apart from those that a killed process left behind.
#include "LxPublicExport.h"

class LXPUBLIC_API LxProcess {
public:
    // The system's ID of this process.
    static int CurrentID();
    // False only when no process with that ID runs; one that this process may
    // not signal or open still runs. Never true for an ID of 0 or below.
    static bool IsRunning(int processID);
};
