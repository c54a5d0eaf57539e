#include "LxAudioThumbnail.h"

#include <cstring>
#include "LxAudioFile.h"
#include "LxPublic/LxRecursiveLock.h"

LxAudioThumbnail::~LxAudioThumbnail() { Clear(); }

void LxAudioThumbnail::AppendSegment(LxAudioFile& store, int pageID, int firstPoint, int points) {
    LxRecursiveLock lock(store.GetLock());
    LxPageThumbnail* piece = store.GetPageThumbnail(pageID);
    if (piece == nullptr || points <= 0) return;
    if (firstPoint < 0 || firstPoint + points > piece->NumberOfPoints()) return;
    ++piece->useCount;
    file = &store;
    segments.push_back({piece, firstPoint, points});
    totalPoints += points;
}

void LxAudioThumbnail::Clear() {
    if (file != nullptr && !segments.empty()) {
        LxRecursiveLock lock(file->GetLock());
        for (Segment& segment : segments) --segment.piece->useCount;
    }
    segments.clear();
    totalPoints = 0;
    loaded = false;
    cachedSegment = 0;
    cachedFirstIndex = -1;
}

uint32_t LxAudioThumbnail::GetPoint(int n) {
    if (n < 0 || n >= totalPoints || segments.empty()) return 0;
    if (cachedFirstIndex < 0) {
        cachedSegment = 0;
        cachedFirstIndex = 0;
    }
    // Walk from the segment last used, forward or backward, to the one holding n.
    while (n < cachedFirstIndex) {
        --cachedSegment;
        cachedFirstIndex -= segments[static_cast<size_t>(cachedSegment)].points;
    }
    while (n >= cachedFirstIndex + segments[static_cast<size_t>(cachedSegment)].points) {
        cachedFirstIndex += segments[static_cast<size_t>(cachedSegment)].points;
        ++cachedSegment;
    }
    const Segment& segment = segments[static_cast<size_t>(cachedSegment)];
    return segment.piece->points[static_cast<size_t>(segment.firstPoint + n - cachedFirstIndex)];
}

void LxAudioThumbnail::CopyPoints(uint32_t* out) const {
    for (const Segment& segment : segments) {
        std::memcpy(out, segment.piece->points.data() + segment.firstPoint,
                    static_cast<size_t>(segment.points) * sizeof(uint32_t));
        out += segment.points;
    }
}
