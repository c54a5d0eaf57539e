#include "LxAlsaWaveMixer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

bool IsSourceSelector(snd_mixer_elem_t* element) {
    if (!snd_mixer_selem_is_active(element) || !snd_mixer_selem_is_enum_capture(element)) return false;
    const char* name = snd_mixer_selem_get_name(element);
    return std::strstr(name, "Source") != nullptr || std::strstr(name, "Input") != nullptr;
}

}  // namespace

std::unique_ptr<LxAlsaWaveMixer> LxAlsaWaveMixer::Open(const LxString& controlName) {
    snd_mixer_t* handle = nullptr;
    if (snd_mixer_open(&handle, 0) < 0) return nullptr;
    if (snd_mixer_attach(handle, controlName.c_str()) < 0 || snd_mixer_selem_register(handle, nullptr, nullptr) < 0 ||
        snd_mixer_load(handle) < 0) {
        snd_mixer_close(handle);
        return nullptr;
    }
    return std::unique_ptr<LxAlsaWaveMixer>(new LxAlsaWaveMixer(handle));
}

LxString LxAlsaWaveMixer::ControlNameOfPcm(const LxString& pcmName) {
    const std::string& name = pcmName.str();
    size_t card = name.find("CARD=");
    if (card == std::string::npos) return "default";
    size_t end = name.find(',', card);
    return LxString("hw:" + name.substr(card, end == std::string::npos ? std::string::npos : end - card));
}

LxAlsaWaveMixer::LxAlsaWaveMixer(snd_mixer_t* handle) : mixer(handle) {}

LxAlsaWaveMixer::~LxAlsaWaveMixer() { snd_mixer_close(mixer); }

snd_mixer_elem_t* LxAlsaWaveMixer::SourceSelector() {
    for (snd_mixer_elem_t* element = snd_mixer_first_elem(mixer); element; element = snd_mixer_elem_next(element)) {
        if (IsSourceSelector(element)) return element;
    }
    return nullptr;
}

std::vector<snd_mixer_elem_t*> LxAlsaWaveMixer::SwitchLines() {
    std::vector<snd_mixer_elem_t*> lines;
    for (snd_mixer_elem_t* element = snd_mixer_first_elem(mixer); element; element = snd_mixer_elem_next(element)) {
        if (snd_mixer_selem_is_active(element) && snd_mixer_selem_has_capture_switch(element)) {
            lines.push_back(element);
        }
    }
    return lines;
}

std::vector<LxString> LxAlsaWaveMixer::GetRecordingLineNames() {
    std::vector<LxString> names;
    if (snd_mixer_elem_t* selector = SourceSelector()) {
        int items = snd_mixer_selem_get_enum_items(selector);
        for (int i = 0; i < items; ++i) {
            char name[128] = {};
            if (snd_mixer_selem_get_enum_item_name(selector, static_cast<unsigned>(i), sizeof name, name) == 0) {
                names.emplace_back(name);
            }
        }
        return names;
    }
    for (snd_mixer_elem_t* element : SwitchLines()) names.emplace_back(snd_mixer_selem_get_name(element));
    return names;
}

int LxAlsaWaveMixer::SelectRecordingLine(unsigned line) {
    if (snd_mixer_elem_t* selector = SourceSelector()) {
        if (static_cast<int>(line) >= snd_mixer_selem_get_enum_items(selector)) return kLxWaveInvalidParameter;
        for (int channel = 0; channel <= SND_MIXER_SCHN_LAST; ++channel) {
            snd_mixer_selem_set_enum_item(selector, static_cast<snd_mixer_selem_channel_id_t>(channel), line);
        }
        return kLxWaveOk;
    }
    std::vector<snd_mixer_elem_t*> lines = SwitchLines();
    if (line >= lines.size()) return kLxWaveInvalidParameter;
    return snd_mixer_selem_set_capture_switch_all(lines[line], 1) < 0 ? kLxWaveError : kLxWaveOk;
}

snd_mixer_elem_t* LxAlsaWaveMixer::CaptureVolumeOf(unsigned line) {
    if (SourceSelector() == nullptr) {
        std::vector<snd_mixer_elem_t*> lines = SwitchLines();
        if (line < lines.size() && snd_mixer_selem_has_capture_volume(lines[line])) return lines[line];
    }
    snd_mixer_elem_t* any = nullptr;
    for (snd_mixer_elem_t* element = snd_mixer_first_elem(mixer); element; element = snd_mixer_elem_next(element)) {
        if (!snd_mixer_selem_is_active(element) || !snd_mixer_selem_has_capture_volume(element)) continue;
        if (std::strcmp(snd_mixer_selem_get_name(element), "Capture") == 0) return element;
        if (any == nullptr) any = element;
    }
    return any;
}

int LxAlsaWaveMixer::SetRecordingLineVolume(unsigned line, float volume) {
    snd_mixer_elem_t* element = CaptureVolumeOf(line);
    if (element == nullptr) return kLxWaveInvalidParameter;
    long low = 0, high = 0;
    if (snd_mixer_selem_get_capture_volume_range(element, &low, &high) < 0) return kLxWaveError;
    float clamped = std::clamp(volume, 0.0f, 1.0f);
    long value = low + std::lround(static_cast<double>(clamped) * static_cast<double>(high - low));
    return snd_mixer_selem_set_capture_volume_all(element, value) < 0 ? kLxWaveError : kLxWaveOk;
}

int LxAlsaWaveMixer::GetRecordingLineVolume(unsigned line, float& volume) {
    snd_mixer_elem_t* element = CaptureVolumeOf(line);
    if (element == nullptr) return kLxWaveInvalidParameter;
    long low = 0, high = 0, value = 0;
    if (snd_mixer_selem_get_capture_volume_range(element, &low, &high) < 0 || high <= low ||
        snd_mixer_selem_get_capture_volume(element, SND_MIXER_SCHN_FRONT_LEFT, &value) < 0) {
        return kLxWaveError;
    }
    volume = static_cast<float>(value - low) / static_cast<float>(high - low);
    return kLxWaveOk;
}

snd_mixer_elem_t* LxAlsaWaveMixer::PlaybackVolume() {
    snd_mixer_elem_t* any = nullptr;
    for (snd_mixer_elem_t* element = snd_mixer_first_elem(mixer); element; element = snd_mixer_elem_next(element)) {
        if (!snd_mixer_selem_is_active(element) || !snd_mixer_selem_has_playback_volume(element)) continue;
        const char* name = snd_mixer_selem_get_name(element);
        if (std::strcmp(name, "Master") == 0) return element;
        if (any == nullptr || std::strcmp(name, "PCM") == 0) any = element;
    }
    return any;
}

int LxAlsaWaveMixer::SetPlaybackVolume(float volume) {
    snd_mixer_elem_t* element = PlaybackVolume();
    if (element == nullptr) return kLxWaveInvalidParameter;
    long low = 0, high = 0;
    if (snd_mixer_selem_get_playback_volume_range(element, &low, &high) < 0) return kLxWaveError;
    float clamped = std::clamp(volume, 0.0f, 1.0f);
    long value = low + std::lround(static_cast<double>(clamped) * static_cast<double>(high - low));
    return snd_mixer_selem_set_playback_volume_all(element, value) < 0 ? kLxWaveError : kLxWaveOk;
}

int LxAlsaWaveMixer::GetPlaybackVolume(float& volume) {
    snd_mixer_elem_t* element = PlaybackVolume();
    if (element == nullptr) return kLxWaveInvalidParameter;
    long low = 0, high = 0, value = 0;
    if (snd_mixer_selem_get_playback_volume_range(element, &low, &high) < 0 || high <= low ||
        snd_mixer_selem_get_playback_volume(element, SND_MIXER_SCHN_FRONT_LEFT, &value) < 0) {
        return kLxWaveError;
    }
    volume = static_cast<float>(value - low) / static_cast<float>(high - low);
    return kLxWaveOk;
}
