#include "LxPublic/wave/LxWaveDevice.h"

LxWaveDevice::~LxWaveDevice() = default;
