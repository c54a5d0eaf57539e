#include "LxAudioDeviceMap.h"

#include <vector>
#include "LxPublic/wave/LxWaveDriver.h"

void GetAudioCaptureDeviceMap(std::map<int, LxString>& devices) {
    devices.clear();
    std::vector<LxWaveInputDeviceInfo> inputs;
    LxWaveDriver::Current().GetInputDevices(inputs);
    // Device and line indices must fit their 16 bits of the ID.
    for (size_t device = 0; device < inputs.size() && device <= 0xFFFF; ++device) {
        const LxWaveInputDeviceInfo& info = inputs[device];
        if (info.lines.empty()) {
            devices[LxMakeCaptureDeviceID(static_cast<int>(device), 0)] = info.name;
            continue;
        }
        for (size_t line = 0; line < info.lines.size() && line <= 0xFFFF; ++line) {
            devices[LxMakeCaptureDeviceID(static_cast<int>(device), static_cast<int>(line))] =
                info.name + ": " + info.lines[line];
        }
    }
}
