#pragma once
// An open wave device (one direction) of some driver: the sound-card boundary
// that the capture and playback logic is written against. The calls follow the
// Windows wave API; each returns an LxWaveResult.
//
// Buffers (LxWaveHeader) are prepared, then queued; the driver plays (or
// records into) queued buffers in the order they were queued, marks each done
// when it has finished with it and sets the event given at open. Queue clears
// the done mark. Close answers kLxWaveStillPlaying while buffers are queued; once
// it has answered kLxWaveOk the device is closed and only its destruction is
// left. Destroying a device that is still open closes it by force.
#include <cstdint>
#include "../LxPublicExport.h"
#include "LxWaveHeader.h"
#include "LxWaveResult.h"

class LXPUBLIC_API LxWaveDevice {
public:
    virtual ~LxWaveDevice();

    virtual int Prepare(LxWaveHeader& header) = 0;
    virtual int Unprepare(LxWaveHeader& header) = 0;
    // waveOutWrite / waveInAddBuffer.
    virtual int Queue(LxWaveHeader& header) = 0;
    // Input: starts recording into the queued buffers. Output: plays as soon as
    // buffers are queued; Start does nothing there.
    virtual int Start() = 0;
    // Input: stops recording; a partly filled buffer is marked done with what it
    // holds, empty queued buffers stay queued.
    virtual int Stop() = 0;
    // Stops, and marks every queued buffer done.
    virtual int Reset() = 0;
    // Output: frames played since open.
    virtual int GetPosition(uint32_t& frames) = 0;
    virtual int Close() = 0;

    virtual bool IsDone(const LxWaveHeader& header) const = 0;
    virtual uint32_t GetBytesRecorded(const LxWaveHeader& header) const = 0;
};
