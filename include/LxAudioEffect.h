#pragma once
// A transform of signed 16-bit samples that can save and load its parameters.
#include "LxAudioCoreExport.h"
#include "LxAudioEffectEnum.h"

class ILxReadWriteStream;

class LXAUDIOCORE_API LxAudioEffect {
public:
    virtual ~LxAudioEffect();
    // Writes or reads the parameters, by the stream's direction. The type is not transferred.
    virtual void XferData(ILxReadWriteStream& stream) = 0;
    virtual short Transform(short sample) const = 0;

    LxAudioEffectEnum GetType() const { return type; }

protected:
    LxAudioEffect() = default;
    LxAudioEffect(const LxAudioEffect&) = default;
    LxAudioEffect& operator=(const LxAudioEffect&) = default;

    LxAudioEffectEnum type = LxAudioEffectUnknown;
};
