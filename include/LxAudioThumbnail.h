#pragma once
// A clip's waveform overview, assembled from the pieces of the page thumbnails
// that the clip's ranges cover (never computed from samples). Holds counted
// references to the store's cached page thumbnails while loaded.
#include <cstdint>
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxPageThumbnail.h"

class LxAudioFile;

class LXAUDIOCORE_API LxAudioThumbnail {
public:
    LxAudioThumbnail() = default;
    ~LxAudioThumbnail();
    LxAudioThumbnail(const LxAudioThumbnail&) = delete;
    LxAudioThumbnail& operator=(const LxAudioThumbnail&) = delete;

    // Takes a counted reference to the page's thumbnail and appends points
    // [firstPoint, firstPoint + points) of it.
    void AppendSegment(LxAudioFile& file, int pageID, int firstPoint, int points);
    // Lets go of every piece.
    void Clear();

    bool IsLoaded() const { return loaded; }
    void SetLoaded(bool value) { loaded = value; }
    int GetNumberOfPoints() const { return totalPoints; }
    // Point n (0-based): minimum in the low half, maximum in the high half; 0 outside.
    uint32_t GetPoint(int n);
    // Copies every point, in order, to out (room for GetNumberOfPoints()).
    void CopyPoints(uint32_t* out) const;

private:
    struct Segment {
        LxPageThumbnail* piece;
        int firstPoint;
        int points;
    };

    LxAudioFile* file = nullptr;
    std::vector<Segment> segments;
    int totalPoints = 0;
    bool loaded = false;
    // The segment last used, so that sequential reads cost one step each.
    int cachedSegment = 0;
    int cachedFirstIndex = -1;
};
