#pragma once
// The clip that audio flows through. On the way in (capture, import) it cuts
// incoming PCM into pages of the store and records them as page ranges; on the
// way out (playback, export, merging) it walks its ranges page by page and hands
// out PCM with each range's volume effect applied. One thread appends to or
// reads a given clip at a time; the store may be shared. The clip refers to its
// store, which must outlive it.
#include <memory>
#include <vector>
#include "ILxAudioPlaybackClip.h"
#include "LxAudioClipBase.h"
#include "LxAudioClipSource.h"
#include "LxAudioThumbnail.h"
#include "LxRange.h"

class ILxStream;
class LxPCMConverter;

class LXAUDIOCORE_API LxAudioClip : public LxAudioClipBase, public ILxAudioPlaybackClip {
public:
    static constexpr int kPageBytes = 176400;
    static constexpr int kBufferBytes = 352800;

    // An empty clip; with clipID != -1 it is loaded from the store.
    LxAudioClip(LxAudioFile& file, int clipID = -1, LX_AUDIO_CLIP_SOURCE source = LX_AUDIO_CLIP_SOURCE_OTHER);
    // Copies ranges and source; the copy starts with a fresh cursor and no thumbnail.
    LxAudioClip(const LxAudioClip& other);
    LxAudioClip& operator=(const LxAudioClip& other);
    ~LxAudioClip() override;

    LX_AUDIO_CLIP_SOURCE GetClipSource() const { return clipSource; }

    // Serialisation: the clip base's record, then the source.
    void ReadFromStream(ILxReadWriteStream& stream) override;
    void WriteToStream(ILxReadWriteStream& stream) override;

    // --- appending ---------------------------------------------------------------
    // Buffers PCM and stores it page by page; volume becomes the gain of each
    // range this call creates. A full page stays pending until more bytes arrive.
    void AppendPCMData(const unsigned char* data, int byteLength, int channels, int sampleRate, int bitsPerSample,
                       float volume);
    // Stores the pending bytes as a page now.
    void FlushPendingPCMData(int channels, int sampleRate, int bitsPerSample, float volume);
    // Ends an append run: stores the pending bytes rounded down to 180 bytes,
    // then the clip; returns its new ID, or -1 when it has no ranges or lost
    // audio (HasLostAudio: the clip is then not stored).
    int FinishAppendingPCMData(int channels, int sampleRate, int bitsPerSample, float volume);
    // Leaves pending bytes in place until the next flush, finish or seek.
    void CancelAppendingPCMData() {}
    // Copies a clip of another store into this store page by page.
    void AppendPCMDataFromAClipInsideAnotherAudioFile(LxAudioClip& other);
    // Whether audio appended to this clip could not be stored (the store
    // refused a page: it was full, say): the clip then lacks that audio (a
    // refused page of PCM reads as the reserved silence), and the host must
    // not take it for what was appended.
    bool HasLostAudio() const { return lostAudio; }
    // Compares this clip's PCM with a stream of chunks (int32 length, three
    // int32 format fields, bytes), as written when audio was captured.
    bool IsRawDataSameAs(ILxStream* stream);

    // --- reading -----------------------------------------------------------------
    int WorthInBytes() const override { return LxAudioClipBase::WorthInBytes(); }
    int WorthInFrames() const override { return LxAudioClipBase::WorthInFrames(); }
    float WorthInSeconds() const override { return LxAudioClipBase::WorthInSeconds(); }
    int WorthInDeciSeconds() const override { return LxAudioClipBase::WorthInDeciSeconds(); }
    void SetPortionToBePlayedBack(int startFrame, int endFrame) override;
    void SeekToBeginning() override;
    void GetNextPCMData(int channels, unsigned char* out, int outCapacity, int& bytesWritten, LxPCMData* info,
                        bool mix) override;
    // Moves the cursor to the next page with bytes to read (or finishes it).
    void AdvanceTheCurrentPage();
    // 1-based frame number of the next frame to be delivered.
    int GetPosition() const { return position; }
    int GetEndFrame() const { return endFrame; }
    bool IsFinished() const { return currentPage == -1; }

    // --- thumbnails --------------------------------------------------------------
    void LoadThumbnail();
    int GetNumberOfFramesInThumbnail() const { return thumbnail.GetNumberOfPoints(); }
    int GetNthFrameInThumbnail(int n);
    // Allocates *byteSize bytes with malloc (the caller frees them) holding every point.
    void GetAudioThumbnail(void** data, int* byteSize);
    int ThumbnailWorthInFrames() const;
    // Gain that brings the loudest thumbnail point of [startFrame, endFrame] to full scale.
    float GetBestVolume(int startFrame, int endFrame);

protected:
    void PushDataToPCMStream(int channels, int sampleRate, int bitsPerSample, float volume);

private:
    void ResetCursor();
    void EnsureBuffer();
    void MoveCursorTo(int rangeIndex, int page, int offset);
    void FetchAndCopy(int channels, unsigned char* out, int outCapacity, int& bytesWritten, LxPCMData* info, bool mix);
    int FirstValidRangeFrom(int index) const;

    // Read cursor: range and page being read, and the bytes of that page still to read.
    int currentRangeIndex = -1;
    int currentPage = -1;
    LxRange pageSpan;
    // Portion being played.
    LxPageTranslation portionStart;
    LxPageTranslation portionEnd;
    int position = -1;
    int endFrame = -1;
    int fetchChannels = 0;
    int fetchStoredChannels = 0;
    // While appending, the pending page; while reading, the fetched page as stored.
    std::vector<unsigned char> buffer;
    std::unique_ptr<LxPCMConverter> converter;
    int pendingBytes = 0;
    LxRange fetchSpan;
    LxAudioThumbnail thumbnail;
    LX_AUDIO_CLIP_SOURCE clipSource;
    bool lostAudio = false;
};
