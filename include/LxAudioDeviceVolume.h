#pragma once
// Sound-card volumes, 0.0 to 1.0, through the platform's mixer: the recording
// volume of a capture source (by capture device ID, see LxAudioDeviceMap.h) and
// the volume of the default playback device. A device without a mixer (or a
// mixer without such a control) gives false and changes nothing; callers may
// ignore the result. Values outside 0.0 to 1.0 are clamped.
#include "LxAudioCoreExport.h"

LXAUDIOCORE_API bool GetAudioCaptureDeviceVolume(int deviceID, float& volume);
LXAUDIOCORE_API bool SetAudioCaptureDeviceVolume(int deviceID, float volume);
LXAUDIOCORE_API bool GetAudioPlaybackDeviceVolume(float& volume);
LXAUDIOCORE_API bool SetAudioPlaybackDeviceVolume(float volume);
