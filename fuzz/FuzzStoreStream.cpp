// A saved project (the store in one stream) opened, then every page and clip
// read; and opened with its integrity checked, and what is intact salvaged.
#include <cstddef>
#include <cstdint>
#include "FuzzCommon.h"
#include "LxPublic/LxMemoryStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietAsserts();
    if (size > (16u << 20)) return 0;
    LxAudioController controller;
    LxMemoryStream stream;
    stream.Write(data, static_cast<int>(size));
    stream.Seek(0, kLxSeekBegin);
    const bool loaded = controller.ReadFrom(&stream);
    fuzz::Note("loaded", loaded);
    if (loaded) {
        fuzz::ExerciseStore(controller);
        // Compression and a second save must cope with whatever was loaded.
        for (int i = 0; i < 4 && controller.HasPagesToCompress(); ++i) controller.CompressOnePage();
        LxMemoryStream again;
        controller.WriteTo(&again);
    }
    fuzz::VerifiedLoadAndSalvage([&](LxAudioController& target, LxAudioDamageReport& report) {
        LxMemoryStream in;
        in.Write(data, static_cast<int>(size));
        in.Seek(0, kLxSeekBegin);
        return target.ReadVerifiedFrom(&in, report);
    });
    return 0;
}
