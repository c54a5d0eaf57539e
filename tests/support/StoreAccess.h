#pragma once
// Reading a store's state back: page records, member sizes, the audio of a clip.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "PcmHelpers.h"

// The record of page; a failure when the store cannot hand it out.
inline LxPCMData PageRecord(LxAudioFile& store, int page) {
    LxPCMData record;
    EXPECT_TRUE(store.ReadPageHeader(page, record)) << page;
    return record;
}

// The sizes of the five member files, in the order of kStoreMembers.
inline std::vector<int> MemberSizes(LxAudioFile& store) {
    int sizes[5];
    store.GetMemberSizes(sizes);
    return std::vector<int>(sizes, sizes + 5);
}

// Everything clip id plays, as channels channels.
inline std::vector<int16_t> ClipAudio(LxAudioFile& store, int id, int channels) {
    LxAudioClip clip(store, id);
    return ReadAll(clip, channels);
}

inline std::vector<std::string> SortedNames(const std::vector<LxString>& names) {
    std::vector<std::string> out;
    for (const LxString& n : names) out.push_back(n.str());
    std::sort(out.begin(), out.end());
    return out;
}
