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
class LxStoreMembers;

class LxAudioCompactor {
public:
    explicit LxAudioCompactor(LxAudioFile& store);
    ~LxAudioCompactor();

    // True when the store changed; clipIDs comes back with the new IDs.
    bool Run(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress);

private:
    void OpenFreshStreams();
    void DiscardFreshStreams();
    void Swap();

    LxAudioFile& store;
    std::set<int> reachable;
    std::map<int, int> correction;
    // Old page ID -> new page ID of every page copied.
    std::map<int, int> renumbered;
    // The members being built; they take the store's place at the end of a run.
    std::unique_ptr<LxStoreMembers> fresh;
};
