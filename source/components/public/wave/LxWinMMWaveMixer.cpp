#include "LxWinMMWaveMixer.h"

#include <algorithm>
#include <string>
#include "LxWinMMText.h"

std::unique_ptr<LxWinMMWaveMixer> LxWinMMWaveMixer::Open(UINT_PTR id, DWORD flags) {
    HMIXER handle = nullptr;
    if (mixerOpen(&handle, static_cast<UINT>(id), 0, 0, flags) != MMSYSERR_NOERROR) return nullptr;
    return std::unique_ptr<LxWinMMWaveMixer>(new LxWinMMWaveMixer(handle));
}

std::unique_ptr<LxWinMMWaveMixer> LxWinMMWaveMixer::OpenForHandle(HWAVEIN input) {
    return Open(reinterpret_cast<UINT_PTR>(input), MIXER_OBJECTF_HWAVEIN);
}

std::unique_ptr<LxWinMMWaveMixer> LxWinMMWaveMixer::OpenForDevice(unsigned deviceIndex) {
    return Open(deviceIndex, MIXER_OBJECTF_WAVEIN);
}

LxWinMMWaveMixer::LxWinMMWaveMixer(HMIXER handle) : mixer(handle) {}

LxWinMMWaveMixer::~LxWinMMWaveMixer() { mixerClose(mixer); }

bool LxWinMMWaveMixer::Destination(MIXERLINEW& line) {
    line = MIXERLINEW{};
    line.cbStruct = sizeof line;
    line.dwComponentType = MIXERLINE_COMPONENTTYPE_DST_WAVEIN;
    return mixerGetLineInfoW(reinterpret_cast<HMIXEROBJ>(mixer), &line,
                             MIXER_OBJECTF_HMIXER | MIXER_GETLINEINFOF_COMPONENTTYPE) == MMSYSERR_NOERROR;
}

bool LxWinMMWaveMixer::Source(unsigned index, MIXERLINEW& line) {
    MIXERLINEW destination;
    if (!Destination(destination) || index >= destination.cConnections) return false;
    line = MIXERLINEW{};
    line.cbStruct = sizeof line;
    line.dwDestination = destination.dwDestination;
    line.dwSource = index;
    return mixerGetLineInfoW(reinterpret_cast<HMIXEROBJ>(mixer), &line,
                             MIXER_OBJECTF_HMIXER | MIXER_GETLINEINFOF_SOURCE) == MMSYSERR_NOERROR;
}

bool LxWinMMWaveMixer::Control(DWORD lineID, DWORD type, MIXERCONTROLW& control) {
    control = MIXERCONTROLW{};
    control.cbStruct = sizeof control;
    MIXERLINECONTROLSW controls{};
    controls.cbStruct = sizeof controls;
    controls.dwLineID = lineID;
    controls.dwControlType = type;
    controls.cControls = 1;
    controls.cbmxctrl = sizeof control;
    controls.pamxctrl = &control;
    return mixerGetLineControlsW(reinterpret_cast<HMIXEROBJ>(mixer), &controls,
                                 MIXER_OBJECTF_HMIXER | MIXER_GETLINECONTROLSF_ONEBYTYPE) == MMSYSERR_NOERROR;
}

std::vector<LxString> LxWinMMWaveMixer::GetRecordingLineNames() {
    std::vector<LxString> names;
    MIXERLINEW destination;
    if (!Destination(destination)) return names;
    for (DWORD i = 0; i < destination.cConnections; ++i) {
        MIXERLINEW source;
        if (Source(i, source)) names.push_back(LxWinMMUtf8(source.szName));
    }
    return names;
}

int LxWinMMWaveMixer::SelectRecordingLine(unsigned line) {
    MIXERLINEW destination, source;
    if (!Destination(destination) || !Source(line, source)) return kLxWaveInvalidParameter;
    // A multiplexer records one source; a mixer control may record several:
    // either way only the chosen line is switched on.
    MIXERCONTROLW control;
    if (!Control(destination.dwLineID, MIXERCONTROL_CONTROLTYPE_MUX, control) &&
        !Control(destination.dwLineID, MIXERCONTROL_CONTROLTYPE_MIXER, control)) {
        return kLxWaveError;
    }
    DWORD items = control.cMultipleItems;
    if (items == 0) return kLxWaveError;
    std::vector<MIXERCONTROLDETAILS_LISTTEXTW> texts(items);
    MIXERCONTROLDETAILS details{};
    details.cbStruct = sizeof details;
    details.dwControlID = control.dwControlID;
    details.cChannels = 1;
    details.cMultipleItems = items;
    details.cbDetails = sizeof(MIXERCONTROLDETAILS_LISTTEXTW);
    details.paDetails = texts.data();
    MMRESULT result = mixerGetControlDetailsW(reinterpret_cast<HMIXEROBJ>(mixer), &details,
                                              MIXER_OBJECTF_HMIXER | MIXER_GETCONTROLDETAILSF_LISTTEXT);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    std::vector<MIXERCONTROLDETAILS_BOOLEAN> values(items);
    bool found = false;
    for (DWORD i = 0; i < items; ++i) {
        values[i].fValue = texts[i].dwParam1 == source.dwLineID ? 1 : 0;
        found = found || values[i].fValue != 0;
    }
    if (!found) return kLxWaveInvalidParameter;
    details.cbDetails = sizeof(MIXERCONTROLDETAILS_BOOLEAN);
    details.paDetails = values.data();
    return static_cast<int>(mixerSetControlDetails(reinterpret_cast<HMIXEROBJ>(mixer), &details,
                                                   MIXER_OBJECTF_HMIXER | MIXER_SETCONTROLDETAILSF_VALUE));
}

int LxWinMMWaveMixer::SetRecordingLineVolume(unsigned line, float volume) {
    MIXERLINEW destination, source;
    MIXERCONTROLW control;
    bool found = Source(line, source) && Control(source.dwLineID, MIXERCONTROL_CONTROLTYPE_VOLUME, control);
    if (!found) found = Destination(destination) && Control(destination.dwLineID, MIXERCONTROL_CONTROLTYPE_VOLUME, control);
    if (!found) return kLxWaveInvalidParameter;
    MIXERCONTROLDETAILS_UNSIGNED value{};
    double span = static_cast<double>(control.Bounds.dwMaximum) - static_cast<double>(control.Bounds.dwMinimum);
    value.dwValue = control.Bounds.dwMinimum +
                    static_cast<DWORD>(static_cast<double>(std::clamp(volume, 0.0f, 1.0f)) * span + 0.5);
    MIXERCONTROLDETAILS details{};
    details.cbStruct = sizeof details;
    details.dwControlID = control.dwControlID;
    details.cChannels = 1;
    details.cbDetails = sizeof value;
    details.paDetails = &value;
    return static_cast<int>(mixerSetControlDetails(reinterpret_cast<HMIXEROBJ>(mixer), &details,
                                                   MIXER_OBJECTF_HMIXER | MIXER_SETCONTROLDETAILSF_VALUE));
}

int LxWinMMWaveMixer::GetRecordingLineVolume(unsigned line, float& volume) {
    MIXERLINEW destination, source;
    MIXERCONTROLW control;
    bool found = Source(line, source) && Control(source.dwLineID, MIXERCONTROL_CONTROLTYPE_VOLUME, control);
    if (!found) found = Destination(destination) && Control(destination.dwLineID, MIXERCONTROL_CONTROLTYPE_VOLUME, control);
    if (!found) return kLxWaveInvalidParameter;
    MIXERCONTROLDETAILS_UNSIGNED value{};
    MIXERCONTROLDETAILS details{};
    details.cbStruct = sizeof details;
    details.dwControlID = control.dwControlID;
    details.cChannels = 1;
    details.cbDetails = sizeof value;
    details.paDetails = &value;
    MMRESULT result = mixerGetControlDetailsW(reinterpret_cast<HMIXEROBJ>(mixer), &details,
                                              MIXER_OBJECTF_HMIXER | MIXER_GETCONTROLDETAILSF_VALUE);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    double span = static_cast<double>(control.Bounds.dwMaximum) - static_cast<double>(control.Bounds.dwMinimum);
    volume = span > 0 ? static_cast<float>((value.dwValue - control.Bounds.dwMinimum) / span) : 0.0f;
    return kLxWaveOk;
}
