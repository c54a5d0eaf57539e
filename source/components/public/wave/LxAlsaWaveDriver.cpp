#include "LxAlsaWaveDriver.h"

#include <alsa/asoundlib.h>
#include <cstdlib>
#include <cstring>
#include "LxAlsaWaveDevice.h"
#include "LxAlsaWaveMixer.h"

namespace {

LxString EnvironmentOr(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    return (value != nullptr && *value != '\0') ? LxString(value) : LxString(fallback);
}

}  // namespace

LxAlsaWaveDriver& LxAlsaWaveDriver::Instance() {
    static LxAlsaWaveDriver instance;
    return instance;
}

LxString LxAlsaWaveDriver::PlaybackPcmName() { return EnvironmentOr("LXAUDIO_ALSA_PLAYBACK_PCM", "default"); }

std::vector<LxString> LxAlsaWaveDriver::InputPcmNames(std::vector<LxString>* descriptions) {
    std::vector<LxString> names{EnvironmentOr("LXAUDIO_ALSA_CAPTURE_PCM", "default")};
    if (descriptions != nullptr) descriptions->emplace_back("Default");
    // The cards' own PCMs (through the plug layer, which converts the format),
    // as ALSA's name hints list them.
    void** hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &hints) < 0) return names;
    for (void** hint = hints; *hint != nullptr; ++hint) {
        char* name = snd_device_name_get_hint(*hint, "NAME");
        char* io = snd_device_name_get_hint(*hint, "IOID");
        char* description = snd_device_name_get_hint(*hint, "DESC");
        bool canRecord = io == nullptr || std::strcmp(io, "Input") == 0;
        if (name != nullptr && canRecord && std::strncmp(name, "plughw:", 7) == 0) {
            names.emplace_back(name);
            if (descriptions != nullptr) {
                std::string text = description != nullptr ? description : name;
                for (char& c : text) {
                    if (c == '\n') c = ' ';
                }
                descriptions->emplace_back(text);
            }
        }
        std::free(name);
        std::free(io);
        std::free(description);
    }
    snd_device_name_free_hint(hints);
    return names;
}

int LxAlsaWaveDriver::OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                                std::unique_ptr<LxWaveDevice>& device) {
    LxString name;
    if (deviceIndex == 0) {
        name = EnvironmentOr("LXAUDIO_ALSA_CAPTURE_PCM", "default");
    } else {
        std::vector<LxString> names = InputPcmNames(nullptr);
        if (deviceIndex >= names.size()) return kLxWaveBadDeviceID;
        name = names[deviceIndex];
    }
    return LxAlsaWaveDevice::Open(name, true, format, event, device);
}

int LxAlsaWaveDriver::OpenOutput(const LxWaveFormat& format, LxWaveEvent& event,
                                 std::unique_ptr<LxWaveDevice>& device) {
    return LxAlsaWaveDevice::Open(PlaybackPcmName(), false, format, event, device);
}

std::unique_ptr<LxWaveMixer> LxAlsaWaveDriver::OpenInputMixer(LxWaveDevice& input) {
    auto* device = dynamic_cast<LxAlsaWaveDevice*>(&input);
    if (device == nullptr) return nullptr;
    return LxAlsaWaveMixer::Open(LxAlsaWaveMixer::ControlNameOfPcm(device->GetPcmName()));
}

std::unique_ptr<LxWaveMixer> LxAlsaWaveDriver::OpenInputMixer(unsigned deviceIndex) {
    std::vector<LxString> names = InputPcmNames(nullptr);
    if (deviceIndex >= names.size()) return nullptr;
    return LxAlsaWaveMixer::Open(LxAlsaWaveMixer::ControlNameOfPcm(names[deviceIndex]));
}

void LxAlsaWaveDriver::GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) {
    devices.clear();
    std::vector<LxString> descriptions;
    std::vector<LxString> names = InputPcmNames(&descriptions);
    for (size_t i = 0; i < names.size(); ++i) {
        LxWaveInputDeviceInfo info;
        info.name = descriptions[i];
        if (auto mixer = LxAlsaWaveMixer::Open(LxAlsaWaveMixer::ControlNameOfPcm(names[i]))) {
            info.lines = mixer->GetRecordingLineNames();
        }
        devices.push_back(std::move(info));
    }
}

int LxAlsaWaveDriver::GetOutputVolume(float& volume) {
    auto mixer = LxAlsaWaveMixer::Open(LxAlsaWaveMixer::ControlNameOfPcm(PlaybackPcmName()));
    return mixer ? mixer->GetPlaybackVolume(volume) : kLxWaveNoDriver;
}

int LxAlsaWaveDriver::SetOutputVolume(float volume) {
    auto mixer = LxAlsaWaveMixer::Open(LxAlsaWaveMixer::ControlNameOfPcm(PlaybackPcmName()));
    return mixer ? mixer->SetPlaybackVolume(volume) : kLxWaveNoDriver;
}
