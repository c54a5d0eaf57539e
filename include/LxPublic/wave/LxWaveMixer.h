#pragma once
// The recording mixer of a wave-in device: which source line records, and at
// what volume. Closing the mixer is destroying the object.
#include "../LxPublicExport.h"

class LXPUBLIC_API LxWaveMixer {
public:
    virtual ~LxWaveMixer();
    // Makes line (index among the device's recording source lines) the one that records.
    virtual int SelectRecordingLine(unsigned line) = 0;
    // volume from 0.0 to 1.0 (full scale).
    virtual int SetRecordingLineVolume(unsigned line, float volume) = 0;
    virtual int GetRecordingLineVolume(unsigned line, float& volume) = 0;
};
