#include "LxClipDataStream.h"

LxClipDataStream::LxClipDataStream(const LxFile& memberFile) : LxMemberStream(memberFile, "clip.lxa") {}
