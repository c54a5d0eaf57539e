#pragma once
// The paged audio store of one project: a directory holding five member files
// ("raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"; see
// docs/store-format.md). All audio of a project is appended here once; clips
// are lists of page ranges into it. The store owns its member streams, which
// delete their files when the store is destroyed; the directory itself belongs
// to whoever created it (the controller). Every operation takes the store's
// recursive lock, so one store may be shared by editing, capture, playback and
// compression threads.
#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxAudioDamageReport.h"
#include "LxPCMData.h"
#include "LxPageRange.h"
#include "LxPageThumbnail.h"
#include "LxPublic/LxFile.h"
#include "LxPublic/LxMutex.h"
#include "LxPublic/LxRecursiveMutex.h"

class ILxStream;
class ILxGeneralProgressCallBack;
class LxZipUpdateInfo;
class ILxClipRecord;
class LxDataStream;
class LxPCMDataStream;
class LxClipDataStream;
class LxClipMapStream;
class LxStoreMembers;
class LxThumbnailCache;
class LxPageDecodeAhead;
class LxFailureWatch;

class LXAUDIOCORE_API LxAudioFile {
public:
    // Opens (or reopens) the store in directory and reserves its silent pages.
    explicit LxAudioFile(const LxFile& directory);
    virtual ~LxAudioFile();
    LxAudioFile(const LxAudioFile&) = delete;
    LxAudioFile& operator=(const LxAudioFile&) = delete;

    bool IsOpen() const;
    const LxFile& GetDirectory() const { return directory; }
    LxRecursiveMutex& GetLock() const { return lock; }

    // Clip records: the store finds them through its clip table, and the record
    // (a clip; see ILxClipRecord) writes and reads its own contents.
    int WriteClip(ILxClipRecord& clip);
    bool ReadClip(int clipID, ILxClipRecord& clip);
    // Every stored clip ID, ascending.
    void GetClipIDs(std::list<int>& clipIDs);

    // Pages (formats in docs/store-format.md). pageID is -1 when the store is closed.
    void AppendPage(const void* pcm, int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID);
    void AppendSilentPage(int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID);
    // False (and a zeroed record) when the page cannot be read.
    bool ReadPageHeader(int pageID, LxPCMData& record);
    void ReadPageData(const LxPCMData& record, int wantedChannels, void* buffer, int bufferBytes, int& bytesRead);
    // A page's record and its PCM as stored, together under one hold of the
    // lock: up to bufferBytes of the page's bytes (zeros for a silent page), in
    // its own channel count. True when the record was read and the page is mono
    // or stereo; otherwise nothing is read (bytesRead 0) and the record is as
    // ReadPageHeader leaves it, for the caller to take the ReadPageData path.
    bool ReadPage(int pageID, LxPCMData& record, void* buffer, int bufferBytes, int& bytesRead);
    void ReadPageThumbnail(int pageID, void* buffer, int bufferBytes, int& bytesRead);
    // Copies one page in its stored form into another store; returns the new page ID or -1.
    int CopyPageTo(int pageID, LxAudioFile& other);

    // Cached page thumbnails; entries stay until released with a use count below 1.
    LxPageThumbnail* GetPageThumbnail(int pageID);
    void ReleaseUnusedThumbnails();

    // The store's reserved silent pages, from which clips cut their silence.
    LxPageRange GetSilenceRange() const;

    // Compresses the next raw page to Vorbis; false when no page was compressed
    // (none left, or the page it looked at was silent or already compressed).
    bool CompressOnePage();
    // Whether a raw page is left for CompressOnePage to compress.
    bool HasPagesToCompress();
    // Calls CompressOnePage until every page has been visited; progress (task
    // "kLxCompressingAudio", one item per page record) may be null and may cancel.
    // Returns the number of pages compressed. The stored bytes are exactly those
    // that repeated CompressOnePage calls give.
    int CompressAllPages(ILxGeneralProgressCallBack* progress);
    // The same as CompressAllPages, and into the same bytes, with up to threads
    // pages encoded at once (threads < 1: one per core). Pages are encoded in
    // batches outside the store's lock and written back in page order, so
    // "enc.lxa" and "pcm.lxa" end up exactly as CompressAllPages leaves them.
    // Progress reports (one item per page record) come once per batch.
    int CompressAllPagesInParallel(int threads, ILxGeneralProgressCallBack* progress);
    // Rebuilds the store from the clips still in use (clipIDs in, their new IDs
    // out), dropping every page they do not reach. True when the store changed.
    bool Compact(std::list<int>& clipIDs, ILxGeneralProgressCallBack* progress);

    void Flush();
    void Close();
    void Clear();
    void DiscardRawData();

    // Whole-store persistence into and from one stream: five times a 32-bit
    // length and that many bytes. ReadFrom checks the whole stream before it
    // changes anything and leaves the store as it was when the stream is damaged.
    bool WriteTo(ILxStream& out);
    bool ReadFrom(ILxStream& in);
    // Persistence into a directory of chunk files of at most 1 MiB each; an
    // incremental save appends only what "raw.lxa" and "enc.lxa" gained since the
    // last save. info, when given, receives the chunk files added, changed and deleted.
    bool WriteTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info);
    bool ReadFrom(const LxFile& directoryIn);

    // --- verified saves and loads --------------------------------------------------
    // WriteTo, then an integrity record (CRC-32 checksums of every 1 MiB chunk of
    // every member, of every page and of every clip record, and the clip table;
    // docs/store-format.md): the bytes before it are exactly those WriteTo
    // writes, and a plain ReadFrom reads them and stops before the record.
    bool WriteVerifiedTo(ILxStream& out);
    // WriteTo into the directory, then the integrity record as the file
    // "integrity.lxi" beside the chunk files (written under a temporary name,
    // forced to disk and renamed; entered in info as added or changed). A plain
    // WriteTo into a directory removes an "integrity.lxi" that would no longer
    // describe the chunk files.
    bool WriteVerifiedTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info);
    // Loads a store saved with or without an integrity record and checks it
    // (LxAudioDamageReport says what is checked). True when it loaded whole and
    // undamaged. When it is damaged, the store holds what could be read (missing
    // bytes as zeros, so that what follows keeps its place), report names the
    // damage and the clips it touches, and the store refuses to be saved or
    // compacted (IsDamaged) until it is loaded again or cleared: its clips can be
    // copied out with SalvageInto. When nothing in it can be read as a store,
    // the store is left as it was and report.loaded is false. No assertion
    // report is raised for the damage found: it is all in report.
    bool ReadVerifiedFrom(ILxStream& in, LxAudioDamageReport& report);
    bool ReadVerifiedFrom(const LxFile& directoryIn, LxAudioDamageReport& report);
    // ReadVerifiedFrom of a project saved in one stream to projectFile, without
    // copying its audio: "raw.lxa" and "enc.lxa" are read in place from the file
    // for as long as the store holds them (what is added goes into the store's
    // own files), so a load costs one pass of the checks over the file. The
    // file must not change while the store uses it: save beside it and rename
    // over it (the store goes on reading the file it opened), never into it.
    bool ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report);
    // After a verified load: copies into target every clip of report.clipTable
    // whose record and pages are intact (also those whose entry in this store's
    // clip table was damaged), and, with fillDamaged, every damaged clip whose
    // own record is intact, its damaged pages replaced by silent pages of the
    // same length and format (2 s when a page's record is lost with its length);
    // those go into patched as well. Pages are copied in their stored form.
    // idMap receives old ID -> new ID. Returns the number of clips copied. Locks
    // this store, then target.
    int SalvageInto(LxAudioFile& target, const LxAudioDamageReport& report, bool fillDamaged,
                    std::map<int, int>& idMap, std::set<int>& patched);

    // Copies every clip of other into this store; idMap receives old ID -> new ID.
    void AppendAudioFileFrom(LxAudioFile& other, std::map<int, int>& idMap);

    // True after a read or write of a member file failed (a full disk, an I/O error):
    // the store no longer holds what it should, and it refuses to be saved or
    // compacted, so that a damaged store never replaces a good saved project.
    // Loading a project or clearing the store makes it whole again.
    bool IsDamaged() const;

    // Sizes of the five members in bytes, in the order raw, enc, pcm, clip, map (0 when closed).
    void GetMemberSizes(int sizes[5]);

    // A member holds at most 2^31 - 1 bytes (page records and saved lengths are
    // 32-bit): a page that would take one past that is refused with an
    // assertion report ("the store is full: raw.lxa would pass 2 GiB"), no page
    // ID and nothing written. Bytes of PCM of that channel count (1 or 2) that
    // can still be appended, in whole pages, before one would be refused; 0
    // when the store is closed.
    int64_t GetRoomForPCM(int channels);
    // Appends refused for want of room since the members were made: a caller
    // compares it before and after a job to tell a full store from other failures.
    int64_t GetRoomRefusals() const;

private:
    friend class LxAudioCompactor;
    friend class LxAudioCompressor;
    friend class LxPageRange;
    friend class LxStoreChecker;
    friend class LxStoreSalvager;
    friend class LxStorePersistence;

    void Open();
    // Counts the times the store's pages were replaced (loaded, cleared,
    // compacted, closed): a page range keeps what it found in the page records
    // only while this stays what it was when it looked.
    uint32_t GetPageEpoch() const { return pageEpoch.load(std::memory_order_acquire); }
    // The pages the store held are gone: cached thumbnails go, and every page
    // range checks itself again.
    void PagesReplaced();
    // The members, or null when the store is closed.
    LxDataStream* Raw() const;
    LxDataStream* Enc() const;
    LxPCMDataStream* Pcm() const;
    LxClipDataStream* Clip() const;
    LxClipMapStream* Map() const;
    // Compaction: fresh members take the place of the old ones (whose files
    // go), and cached thumbnails follow their pages to the new IDs.
    void ReplaceMembers(std::unique_ptr<LxStoreMembers> fresh, const std::map<int, int>& oldToNewPage);
    void ReserveSilence();
    static bool TwoCores();
    // Hands the page over to be decoded ahead of the reader, when it is a
    // compressed page not already there.
    void DecodeAhead(int pageID);
    // True when the compressor has visited every page and no page record refers
    // to "raw.lxa" any more: a save may then leave the raw data out.
    bool RawDataUnreferenced();
    // Failed reads or writes of the member files (chunk saves counted as writes).
    int64_t MemberFailures(bool writes) const;
    // Takes the present failures as the store's healthy state.
    void MarkIntact();
    // Reports and returns true when the store is damaged.
    bool RefuseDamagedSave() const;

    LxFile directory;
    // The five member files; null when the store is closed.
    std::unique_ptr<LxStoreMembers> members;
    LxPageRange silenceRange;
    mutable LxRecursiveMutex lock;
    // Held by the compressor for a whole page (it encodes outside the store's
    // lock) and by whatever replaces the member objects it encodes with
    // (compaction, destruction); always taken before the store's lock.
    LxMutex compressorMutex;
    std::unique_ptr<LxThumbnailCache> thumbnails;
    // The member files' failures since the store was last known whole.
    std::unique_ptr<LxFailureWatch> damageWatch;
    // Set by a verified load that found damage; cleared by the next load or Clear.
    bool loadedDamaged = false;
    std::atomic<uint32_t> pageEpoch{0};
    // Decodes the next compressed page while the reader handles this one;
    // made at the first read of a compressed page.
    std::unique_ptr<LxPageDecodeAhead> decodeAhead;
};
