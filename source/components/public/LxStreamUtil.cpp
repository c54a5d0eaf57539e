#include "LxPublic/LxStreamUtil.h"

#include "LxFileStream.h"
#include "LxPublic/LxMemoryStream.h"

std::unique_ptr<ILxReadWriteStream> LxStreamUtil::CreateFileStreamReadWrite(const LxFile& file, int mode,
                                                                            int /*shareMode*/, int /*attributes*/) {
    LxNativeFile::OpenMode openMode;
    if ((mode & kLxStreamReadWrite) == kLxStreamReadWrite) {
        openMode = LxNativeFile::kOpenReadWrite;
    } else if (mode & kLxStreamWrite) {
        openMode = LxNativeFile::kOpenTruncate;
    } else if (mode & kLxStreamRead) {
        openMode = LxNativeFile::kOpenRead;
    } else {
        return nullptr;
    }
    auto stream = std::make_unique<LxFileStream>();
    if (!stream->Open(file, openMode)) return nullptr;
    stream->SetWriting(openMode != LxNativeFile::kOpenRead);
    return stream;
}

std::unique_ptr<ILxReadWriteStream> LxStreamUtil::CreateFileStreamRead(const LxFile& file, int /*mode*/,
                                                                       int shareMode, int attributes) {
    return CreateFileStreamReadWrite(file, kLxStreamRead, shareMode, attributes);
}

std::unique_ptr<ILxReadWriteStream> LxStreamUtil::CreateMemoryStream() { return std::make_unique<LxMemoryStream>(); }
