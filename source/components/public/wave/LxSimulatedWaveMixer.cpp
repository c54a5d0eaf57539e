#include "LxSimulatedWaveMixer.h"

LxSimulatedWaveMixer::LxSimulatedWaveMixer(LxSimulatedWaveDriver& owner, unsigned lines)
    : driver(owner), lineCount(lines) {}

int LxSimulatedWaveMixer::SelectRecordingLine(unsigned line) {
    if (int failure = driver.TakeFailure(LxWaveCall::SelectLine)) return failure;
    if (line >= lineCount) return kLxWaveInvalidParameter;
    driver.MixerSelected(line);
    return kLxWaveOk;
}

int LxSimulatedWaveMixer::SetRecordingLineVolume(unsigned line, float value) {
    if (int failure = driver.TakeFailure(LxWaveCall::SetLineVolume)) return failure;
    if (line >= lineCount && lineCount != 0) return kLxWaveInvalidParameter;
    volume = value;
    driver.MixerVolume(value);
    return kLxWaveOk;
}

int LxSimulatedWaveMixer::GetRecordingLineVolume(unsigned line, float& value) {
    if (line >= lineCount && lineCount != 0) return kLxWaveInvalidParameter;
    float written = driver.GetRecordingVolume();
    value = written < 0.0f ? volume : written;
    return kLxWaveOk;
}
