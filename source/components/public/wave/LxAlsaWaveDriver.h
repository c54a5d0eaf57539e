#pragma once
// The ALSA wave driver (Linux). Playback opens the default PCM; recording
// device 0 is the default PCM too, and the devices after it are the cards' PCMs
// that can record. LXAUDIO_ALSA_PLAYBACK_PCM and LXAUDIO_ALSA_CAPTURE_PCM name
// other PCMs for playback and for recording device 0. PulseAudio and PipeWire
// desktops are reached through ALSA's default PCM.
#include "LxPublic/LxString.h"
#include "LxPublic/wave/LxWaveDriver.h"

class LxAlsaWaveDriver : public LxWaveDriver {
public:
    static LxAlsaWaveDriver& Instance();

    const char* GetName() const override { return "alsa"; }
    int OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                  std::unique_ptr<LxWaveDevice>& device) override;
    int OpenOutput(const LxWaveFormat& format, LxWaveEvent& event, std::unique_ptr<LxWaveDevice>& device) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(LxWaveDevice& input) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(unsigned deviceIndex) override;
    void GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) override;
    int GetOutputVolume(float& volume) override;
    int SetOutputVolume(float volume) override;

private:
    LxAlsaWaveDriver() = default;
    // PCM names of the recording devices, default first.
    std::vector<LxString> InputPcmNames(std::vector<LxString>* descriptions);
    static LxString PlaybackPcmName();
};
