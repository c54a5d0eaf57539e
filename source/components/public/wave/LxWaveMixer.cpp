#include "LxPublic/wave/LxWaveMixer.h"

LxWaveMixer::~LxWaveMixer() = default;
