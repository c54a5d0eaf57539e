#include "LxStoreMembers.h"

namespace {
const char* const kNames[LxStoreMembers::kCount] = {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"};
}  // namespace

const char* LxStoreMembers::Name(int index) { return index >= 0 && index < kCount ? kNames[index] : ""; }

LxStoreMembers::LxStoreMembers(const LxFile& directory)
    : raw(std::make_unique<LxDataStream>(directory.GetChild(kNames[kRaw]), kNames[kRaw])),
      enc(std::make_unique<LxDataStream>(directory.GetChild(kNames[kEnc]), kNames[kEnc])),
      pcm(std::make_unique<LxPCMDataStream>(directory.GetChild(kNames[kPcm]), raw.get(), enc.get())),
      clip(std::make_unique<LxClipDataStream>(directory.GetChild(kNames[kClip]))),
      map(std::make_unique<LxClipMapStream>(directory.GetChild(kNames[kMap]))) {}

LxStoreMembers::~LxStoreMembers() {
    map.reset();
    clip.reset();
    pcm.reset();
    enc.reset();
    raw.reset();
}

LxMemberStream& LxStoreMembers::At(int index) const {
    switch (index) {
        case kRaw: return *raw;
        case kEnc: return *enc;
        case kPcm: return *pcm;
        case kClip: return *clip;
        default: return *map;
    }
}

void LxStoreMembers::GetSizes(int sizes[kCount]) {
    map->Save();
    for (int i = 0; i < kCount; ++i) sizes[i] = At(i).GetSize();
}

int64_t LxStoreMembers::Failures(bool writes) const {
    int64_t failures = 0;
    for (int i = 0; i < kCount; ++i)
        failures += At(i).GetFailures(writes) + (writes ? At(i).GetChunkWriteFailures() : 0);
    return failures;
}

void LxStoreMembers::Flush() {
    raw->Flush();
    enc->Flush();
    pcm->Flush();
    clip->Flush();
    map->Save();
    map->Flush();
}

void LxStoreMembers::Close() {
    map->Save();
    for (int i = 0; i < kCount; ++i) At(i).Close();
}

void LxStoreMembers::Truncate() {
    for (int i = 0; i < kCount; ++i) At(i).Truncate();
    raw->SetSavedLength(0);
    enc->SetSavedLength(0);
    pcm->SetCompressCursor(0);
    map->Clear();
}

bool LxStoreMembers::MoveInto(const LxFile& directory) {
    bool moved = true;
    for (int i = 0; i < kCount; ++i) moved = At(i).MoveTo(directory.GetChild(kNames[i])) && moved;
    return moved;
}
