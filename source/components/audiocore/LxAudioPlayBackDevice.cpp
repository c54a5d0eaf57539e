#include "LxAudioPlayBackDevice.h"

LxAudioPlayBackDevice::LxAudioPlayBackDevice(LxStopPlayBackFunction function, void* functionContext)
    : stopFunction(function), stopContext(functionContext) {}

LxAudioPlayBackDevice::~LxAudioPlayBackDevice() = default;
