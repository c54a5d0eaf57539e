#pragma once
// Options that a host may hand to an importer; each importer kind says whether it has any.
#include "LxAudioCoreExport.h"

class LXAUDIOCORE_API ILxImporterOptions {
public:
    virtual ~ILxImporterOptions();
    virtual bool HaveSpecificOptions() const = 0;
};
