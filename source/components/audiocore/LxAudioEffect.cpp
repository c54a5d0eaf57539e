#include "LxAudioEffect.h"

LxAudioEffect::~LxAudioEffect() = default;
