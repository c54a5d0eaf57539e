#include "LxThumbnailCache.h"

#include <algorithm>
#include <cstdint>
#include "LxAudioConstants.h"
#include "LxPCMDataStream.h"
#include "LxPublic/LxStreamUtil.h"

LxPageThumbnail* LxThumbnailCache::Get(int pageID, LxPCMDataStream& pcm) {
    auto it = entries.find(pageID);
    if (it != entries.end()) return &it->second;
    LxPCMData record;
    if (!pcm.ReadPageHeader(pageID, record)) return nullptr;
    // A full page's thumbnail: 3920 bytes mono, 1960 stereo.
    int capacity = record.channels > 0 ? (1960 / record.channels) * 2 : 0;
    std::vector<unsigned char> bytes(static_cast<size_t>(std::max(capacity, 0)));
    int got = 0;
    if (capacity > 0) pcm.ReadPageThumbnail(pageID, bytes.data(), capacity, got);
    got = std::clamp(got, 0, capacity);
    LxPageThumbnail entry;
    entry.channels = record.channels;
    entry.sampleRate = record.sampleRate;
    entry.bitsPerSample = record.bitsPerSample;
    entry.points.resize(static_cast<size_t>(got / 4));
    for (size_t i = 0; i < entry.points.size(); ++i) entry.points[i] = LxStreamUtil::GetLe32(bytes.data() + 4 * i);
    return &entries.emplace(pageID, std::move(entry)).first->second;
}

void LxThumbnailCache::ReleaseUnused() {
    for (auto it = entries.begin(); it != entries.end();) {
        it = it->second.useCount < 1 ? entries.erase(it) : std::next(it);
    }
    retired.erase(std::remove_if(retired.begin(), retired.end(),
                                 [](const auto& node) { return node.mapped().useCount < 1; }),
                  retired.end());
}

void LxThumbnailCache::Renumber(const std::map<int, int>& oldToNewPage) {
    std::vector<Entries::node_type> moved;
    while (!entries.empty()) {
        auto node = entries.extract(entries.begin());
        auto target = oldToNewPage.find(node.key());
        if (target != oldToNewPage.end()) {
            node.key() = target->second;
            moved.push_back(std::move(node));
        } else if (node.mapped().useCount >= 1) {
            retired.push_back(std::move(node));
        }
    }
    for (auto& node : moved) entries.insert(std::move(node));
}

void LxThumbnailCache::Drop() {
    while (!entries.empty()) {
        auto node = entries.extract(entries.begin());
        if (node.mapped().useCount >= 1) retired.push_back(std::move(node));
    }
}
