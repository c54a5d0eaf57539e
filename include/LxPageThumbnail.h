#pragma once
// The waveform summary of one page, as the store caches it: one point per 90
// frames, each point a 16-bit minimum in its low half and a 16-bit maximum in its
// high half. Entries are owned by the store's cache; clips that use an entry
// raise useCount while they hold it and lower it when they let go.
#include <cstdint>
#include <vector>

struct LxPageThumbnail {
    std::vector<uint32_t> points;
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    int useCount = 0;

    int NumberOfPoints() const { return static_cast<int>(points.size()); }
};
