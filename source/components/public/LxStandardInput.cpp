#include "LxPublic/LxStandardInput.h"

#include <cstdio>
#include <memory>
#include <vector>
#include "LxPublic/LxStreamUtil.h"

int64_t LxStandardInput::CopyTo(const LxFile& target) {
    // Text mode would turn CR LF pairs of the audio into LF.
    UseBinaryMode();
    std::unique_ptr<ILxReadWriteStream> out =
        LxStreamUtil::CreateFileStreamReadWrite(target, kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
    if (!out) return -1;
    std::vector<unsigned char> buffer(1 << 16);
    int64_t total = 0;
    for (;;) {
        const size_t got = std::fread(buffer.data(), 1, buffer.size(), stdin);
        if (got > 0) {
            if (out->Write(buffer.data(), static_cast<int>(got)) != static_cast<int>(got)) return -1;
            total += static_cast<int64_t>(got);
        }
        if (got < buffer.size()) break;
    }
    const bool failed = std::ferror(stdin) != 0;
    if (!out->Flush()) return -1;
    out->Close();
    return failed ? -1 : total;
}
