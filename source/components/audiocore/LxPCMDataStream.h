#pragma once
// "pcm.lxa": one 36-byte header record per page; a page is named by its
// record's position (page ID). Writes page data into "raw.lxa" and "enc.lxa",
// which the store owns, and hides the three storage forms (raw, Vorbis,
// silent) behind append and read. Not locked itself: the store's lock is held
// around every call.
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

    LxDataStream* GetRawStream() const { return rawStream; }
    LxDataStream* GetEncStream() const { return encStream; }
    LxCodec* GetCodec(int channels) const;

    // Record position of the next page the compressor will look at.
    uint32_t compressCursor = 0;

private:
    LxDataStream* rawStream;
    LxDataStream* encStream;
    std::vector<unsigned char> pageBuffer;
    std::unique_ptr<LxCodec> monoCodec;
    std::unique_ptr<LxCodec> stereoCodec;
};
