// A project saved as a directory of chunk files, opened, then every page and
// clip read; and opened with its integrity checked, and what is intact salvaged. The input is a list of files: a selector byte (which member and
// which chunk number), a 16-bit little-endian length, and the file's bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include "FuzzCommon.h"
#include "FuzzDirectoryInput.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxStreamUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietAsserts();
    LxFile dir = LxFileUtil::CreateUniqueTempDir("LxFuzzDir");
    for (const fuzz::DirectoryFile& file : fuzz::ParseDirectoryInput(data, size)) {
        auto stream = LxStreamUtil::CreateFileStreamReadWrite(dir.GetChild(file.name.c_str()), kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
        if (stream) stream->Write(file.bytes.data(), static_cast<int>(file.bytes.size()));
    }
    {
        LxAudioController controller;
        const bool loaded = controller.ReadFrom(dir);
        fuzz::Note("loaded", loaded);
        if (loaded) fuzz::ExerciseStore(controller);
    }
    fuzz::VerifiedLoadAndSalvage([&](LxAudioController& target, LxAudioDamageReport& report) {
        return target.ReadVerifiedFrom(dir, report);
    });
    LxFileUtil::DeleteDirectory(dir, true);
    return 0;
}
