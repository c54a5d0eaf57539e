#pragma once
// A working directory that no controller holds any more: what a process left
// when it was killed, crashed, lost its power, or kept on purpose because it
// held recordings that no save had committed.
#include <vector>
#include "LxAudioInterruptedRecording.h"
#include "LxPublic/LxFile.h"

struct LxAudioLeftover {
    LxFile directory;
    // Its recordings, oldest first; empty when it holds none (then it holds
    // nothing worth keeping and can be deleted).
    std::vector<LxAudioInterruptedRecording> recordings;
};
