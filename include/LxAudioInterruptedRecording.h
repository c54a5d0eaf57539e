#pragma once
// One recording found in a leftover working directory: the capture journal that
// a capture wrote while it ran, and what it holds.
#include <cstdint>
#include "LxPublic/LxFile.h"

struct LxAudioInterruptedRecording {
    // The journal file.
    LxFile journal;
    // When the capture started, in milliseconds since 1970-01-01 UTC.
    int64_t startTimeMS = 0;
    // Audio the journal holds intact, in frames at 44100 Hz (what recovery gives
    // back, up to the last 180-byte boundary).
    int64_t frames = 0;
    // Channels of the captured audio (1 for every capture device).
    int channels = 1;
    // True when the capture ended normally (StopCapture, CancelCapture or the
    // capture ending itself) but no save committed it; false when the process
    // stopped while the capture ran.
    bool ended = false;
    // False when the journal's own header is damaged: nothing can be recovered.
    bool readable = true;
};
