#pragma once
// Turns the store's raw pages into Vorbis pages, one at a time (the
// controller's background compressor) or all at once, on one thread or on
// several. A page is encoded outside the store's lock, so that editing,
// capture and playback go on meanwhile, and written back under it only while
// it is still the page that was encoded. The store's compressor mutex is held
// for a whole page: whatever replaces the member objects (compaction,
// destruction) takes it first.
class LxAudioFile;
class ILxGeneralProgressCallBack;

class LxAudioCompressor {
public:
    explicit LxAudioCompressor(LxAudioFile& store);

    // Compresses the page at the store's compression cursor; false when no
    // page was compressed (none left, or the page it looked at was silent,
    // already compressed or damaged).
    bool CompressOnePage();
    // Whether a raw page is left at or after the cursor.
    bool HasPagesToCompress();
    // CompressOnePage until every page has been visited (task "kLxCompressingAudio").
    int CompressAllPages(ILxGeneralProgressCallBack* progress);
    // The same bytes as CompressAllPages, with pages encoded in batches on up to threads threads.
    int CompressAllPagesInParallel(int threads, ILxGeneralProgressCallBack* progress);

private:
    LxAudioFile& store;
};
