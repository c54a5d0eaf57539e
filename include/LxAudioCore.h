#pragma once
// Umbrella header of the LxAudioCore engine: the exported classes and the
// platform library they use.
#include "LxPublic/LxPublic.h"
#include "LxAudioCoreExport.h"
#include "LxRange.h"
#include "LxPCMData.h"
#include "LxPageThumbnail.h"
#include "LxAudioEffectEnum.h"
#include "LxAudioEffect.h"
#include "LxAudioVolumeEffect.h"
#include "LxPageTranslation.h"
#include "LxPageRange.h"
#include "LxAudioClipBase.h"
#include "LxAudioFile.h"
#include "LxAudioResampler.h"
