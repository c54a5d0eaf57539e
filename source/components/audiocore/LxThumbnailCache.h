#pragma once
// The store's cache of page thumbnails, by page ID. Entries are map nodes that
// never move in memory: a clip holding an entry (useCount above 0) keeps a
// valid pointer through renumbering (compaction) and through the store's pages
// being replaced (a load, a clear), after which the entry waits among the
// retired ones until the clip lets go. Not locked itself: the store's lock is
// held around every call.
#include <map>
#include <vector>
#include "LxPageThumbnail.h"

class LxPCMDataStream;

class LxThumbnailCache {
public:
    // The cached entry of the page, read from pcm when it is not cached yet;
    // null when the page's record cannot be read.
    LxPageThumbnail* Get(int pageID, LxPCMDataStream& pcm);
    // Frees the entries no clip holds, current and retired.
    void ReleaseUnused();
    // After compaction: entries follow their pages to the new IDs; entries of
    // dropped pages go, or retire while a clip still holds them.
    void Renumber(const std::map<int, int>& oldToNewPage);
    // Empties the cache; held entries retire.
    void Drop();

private:
    using Entries = std::map<int, LxPageThumbnail>;
    Entries entries;
    std::vector<Entries::node_type> retired;
};
