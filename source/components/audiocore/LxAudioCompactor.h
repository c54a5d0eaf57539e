#pragma once
// Rebuilds a store from the clips still in use: finds every page they reach,
// copies exactly those pages (in their stored form) into fresh member streams,
// renumbers the pages of the live clips, rewrites those clips under new IDs and
// swaps the fresh streams in. Runs under the store's lock.
#include <list>
#include <map>
#include <memory>
#include <set>

class LxAudioFile;
class ILxGeneralProgressCallBack;
class LxDataStream;
class LxPCMDataStream;
class LxClipDataStream;
class LxClipMapStream;

class LxAudioCompactor {
public:
    explicit LxAudioCompactor(LxAudioFile& store);
    ~LxAudioCompactor();

    // True when the store changed; clipIDs comes back with the new IDs.
    bool Run(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress);

    // The page-ID corrections of the last run: from old page P on, until the next
    // key, new ID = old ID - shift.
    const std::map<int, int>& GetCorrection() const { return correction; }

private:
    void OpenFreshStreams();
    void DiscardFreshStreams();
    void Swap();

    LxAudioFile& store;
    std::set<int> reachable;
    std::map<int, int> correction;
    // Old page ID -> new page ID of every page copied.
    std::map<int, int> renumbered;
    std::unique_ptr<LxDataStream> freshRaw;
    std::unique_ptr<LxDataStream> freshEnc;
    std::unique_ptr<LxPCMDataStream> freshPcm;
    std::unique_ptr<LxClipDataStream> freshClip;
    std::unique_ptr<LxClipMapStream> freshMap;
};
