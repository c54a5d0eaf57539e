#include "LxAudioDeviceVolume.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include "LxPublic/wave/LxWaveDriver.h"

namespace {

std::unique_ptr<LxWaveMixer> MixerOf(int deviceID) {
    return LxWaveDriver::Current().OpenInputMixer(static_cast<unsigned>(deviceID) >> 16);
}

unsigned LineOf(int deviceID) { return static_cast<unsigned>(deviceID) & 0xFFFFu; }

}  // namespace

bool GetAudioCaptureDeviceVolume(int deviceID, float& volume) {
    std::unique_ptr<LxWaveMixer> mixer = MixerOf(deviceID);
    return mixer && mixer->GetRecordingLineVolume(LineOf(deviceID), volume) == kLxWaveOk;
}

bool SetAudioCaptureDeviceVolume(int deviceID, float volume) {
    if (std::isnan(volume)) return false;
    std::unique_ptr<LxWaveMixer> mixer = MixerOf(deviceID);
    return mixer && mixer->SetRecordingLineVolume(LineOf(deviceID), std::clamp(volume, 0.0f, 1.0f)) == kLxWaveOk;
}

bool GetAudioPlaybackDeviceVolume(float& volume) { return LxWaveDriver::Current().GetOutputVolume(volume) == kLxWaveOk; }

bool SetAudioPlaybackDeviceVolume(float volume) {
    if (std::isnan(volume)) return false;
    return LxWaveDriver::Current().SetOutputVolume(std::clamp(volume, 0.0f, 1.0f)) == kLxWaveOk;
}
