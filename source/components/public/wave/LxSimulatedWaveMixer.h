#pragma once
// The recording mixer of a simulated input device: it only tells the driver
// what was asked of it.
#include "LxPublic/wave/LxSimulatedWaveDriver.h"

class LxSimulatedWaveMixer : public LxWaveMixer {
public:
    LxSimulatedWaveMixer(LxSimulatedWaveDriver& driver, unsigned lineCount);

    int SelectRecordingLine(unsigned line) override;
    int SetRecordingLineVolume(unsigned line, float volume) override;
    int GetRecordingLineVolume(unsigned line, float& volume) override;

private:
    LxSimulatedWaveDriver& driver;
    unsigned lineCount;
    float volume = 1.0f;
};
