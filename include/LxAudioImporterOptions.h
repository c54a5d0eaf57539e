#pragma once
// The importer options of this engine: whether the host wants the original
// stream kept alongside the imported clip.
#include "ILxImporterOptions.h"

class LXAUDIOCORE_API LxAudioImporterOptions : public ILxImporterOptions {
public:
    bool HaveSpecificOptions() const override { return true; }
    bool GetNeedToSetOriginalStream() const { return needToSetOriginalStream; }
    // Returns the previous value.
    bool SetNeedToSetOriginalStream(bool value) {
        bool old = needToSetOriginalStream;
        needToSetOriginalStream = value;
        return old;
    }

private:
    bool needToSetOriginalStream = false;
};
