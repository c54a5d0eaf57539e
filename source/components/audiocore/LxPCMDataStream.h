#pragma once
// "pcm.lxa": one 36-byte header record per page; a page is named by its
// record's position (page ID). Writes page data into "raw.lxa" and "enc.lxa",
// which the store owns, and hides the three storage forms (raw, Vorbis,
// silent) behind append and read. Not locked itself: the store's lock is held
// around every call.
//
// Records read or written are remembered by page ID: clips walk their pages'
// records on every edit and read, and a header seek and nine transfers per
// page made editing a long clip cost as much as the clip is long. Every write
// of "pcm.lxa" goes through this class or its base, which keep the copies
// equal to the file; after any failed read or write of the file they are all
// dropped, and what the file then holds is read again.
#include <memory>
#include <vector>
#include "LxCodec.h"
#include "LxMemberStream.h"
#include "LxPCMData.h"

class LxDataStream;

class LxPCMDataStream : public LxMemberStream {
public:
    // Largest format fields a readable page record may carry.
    static constexpr int kMaxChannels = 16;
    static constexpr int kMaxBitsPerSample = 64;

    LxPCMDataStream(const LxFile& file, LxDataStream* raw, LxDataStream* enc);
    ~LxPCMDataStream() override;

    void AppendPage(const void* pcm, int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID);
    void AppendSilentPage(int pcmBytes, int channels, int sampleRate, int bitsPerSample, int& pageID);
    // Reads the record at pageID; false (record zeroed) when it is not all there.
    bool ReadPageHeader(int pageID, LxPCMData& record);
    // Writes the record at the stream's current position.
    void WritePageHeader(const LxPCMData& record);
    void ReadPageData(const LxPCMData& record, int wantedChannels, void* buffer, int bufferBytes, int& bytesRead);
    void ReadPageThumbnail(int pageID, void* buffer, int bufferBytes, int& bytesRead);
    void CopyPageTo(int pageID, LxPCMDataStream& target, int& newPageID);

    LxCodec* GetCodec(int channels) const;

    // Record position of the next page the compressor will look at; 0 at
    // construction and again after a load or a clear (kept in memory only).
    uint32_t GetCompressCursor() const { return compressCursor; }
    void SetCompressCursor(uint32_t position) { compressCursor = position; }

protected:
    void ContentsReplaced() override;

private:
    struct KnownRecord {
        LxPCMData record;
        bool known = false;
    };
    // Records past this index are read from the file each time: a damaged
    // "pcm.lxa" of any length cannot make the copies grow without bound.
    static constexpr size_t kMaxKnownRecords = size_t{1} << 20;

    static LxPCMData MakeRecord(int codec, int pcmBytes, int channels, int sampleRate, int bitsPerSample);
    // Writes record after the last one and returns its page ID.
    int AppendRecord(const LxPCMData& record);
    // Whether ReadPageHeader accepts the record's format fields.
    static bool IsReadable(const LxPCMData& record);
    // Drops every remembered record when the file failed a read or write since
    // they were taken; false when the records cannot be trusted now.
    bool KnownRecordsValid();
    void ForgetRecords();
    void RememberRecord(int64_t position, const LxPCMData& record);

    uint32_t compressCursor = 0;
    LxDataStream* rawStream;
    LxDataStream* encStream;
    std::vector<unsigned char> pageBuffer;
    std::unique_ptr<LxCodec> monoCodec;
    std::unique_ptr<LxCodec> stereoCodec;
    std::vector<KnownRecord> knownRecords;
    int64_t knownFailures = 0;  // read and write failures of the file when the records were taken
};
