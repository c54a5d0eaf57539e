#pragma once
// The recording sources a host can offer for capture. Each entry is keyed by
// the capture device ID that StartCapture takes: the input device's index in
// the high 16 bits, the index of the source line on that device's recording
// mixer in the low 16 bits. Names read "device: line"; a device without a
// mixer (or without source lines) appears once, under line 0, by its own name.
#include <map>
#include "LxAudioCoreExport.h"
#include "LxPublic/LxString.h"

LXAUDIOCORE_API void GetAudioCaptureDeviceMap(std::map<int, LxString>& devices);

// The capture device ID of a device index and a source line index.
constexpr int LxMakeCaptureDeviceID(int deviceIndex, int lineIndex) {
    return static_cast<int>((static_cast<unsigned>(deviceIndex) << 16) | (static_cast<unsigned>(lineIndex) & 0xFFFFu));
}
