#pragma once
// The WinMM wave driver (Windows): the multimedia wave API itself. Devices are
// opened with CALLBACK_EVENT on the device logic's event; playback opens
// WAVE_MAPPER, recording the wave-in device of the given index. The recording
// mixer is the wave-in device's mixer destination line and its source lines.
#include "LxPublic/wave/LxWaveDriver.h"

class LxWinMMWaveDriver : public LxWaveDriver {
public:
    static LxWinMMWaveDriver& Instance();

    const char* GetName() const override { return "winmm"; }
    int OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                  std::unique_ptr<LxWaveDevice>& device) override;
    int OpenOutput(const LxWaveFormat& format, LxWaveEvent& event, std::unique_ptr<LxWaveDevice>& device) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(LxWaveDevice& input) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(unsigned deviceIndex) override;
    void GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) override;
    int GetOutputVolume(float& volume) override;
    int SetOutputVolume(float volume) override;

private:
    LxWinMMWaveDriver() = default;
};
