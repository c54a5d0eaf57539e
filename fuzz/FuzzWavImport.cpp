// Whole WAV files into the importer, then the imported clip played back.
#include <cstddef>
#include <cstdint>
#include "FuzzCommon.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxWAVImporter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietAsserts();
    if (size > (8u << 20)) return 0;
    LxAudioController controller;
    LxMemoryStream stream;
    stream.Write(data, static_cast<int>(size));
    stream.Seek(0, kLxSeekBegin);
    // The last byte's low bit turns the noise suppressor on, so both paths are explored.
    const bool denoise = size > 0 && (data[size - 1] & 1) != 0;
    auto importer = controller.GetWAVImporter(nullptr, nullptr, denoise);
    const int id = importer->Import(&stream);
    fuzz::Note("imported clip", id);
    if (id > 0) {
        auto clip = controller.GetClip(id);
        fuzz::PlayClip(*clip, 2);
        fuzz::PlayClip(*clip, 1);
    }
    return 0;
}
