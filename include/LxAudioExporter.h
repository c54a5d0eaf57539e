#pragma once
// Base of every exporter. It runs the export loop that all formats share: pull
// 16-bit PCM from a clip (or anything else that can be played) over a portion,
// as mono or stereo, resample it from 44100 frames per second to the output's
// rate when that differs, and hand it to the concrete exporter, which encodes
// it into a stream. A concrete exporter supplies only the format: which sample
// sizes it takes, what to write before the audio, how to write a block of
// samples, and what to write (or patch) once the audio is done.
//
// The output's format is fixed at construction: channels (1 or 2), frame rate
// (1000 to 768000) and bits per sample (whichever the concrete format accepts).
// An unsupported format is reported when an export starts.
//
// Exporting to a file never leaves a half-written file behind: the audio goes
// to a temporary file next to the target, which is renamed over the target
// only when everything has been written; a failed or cancelled export deletes
// the temporary file and leaves any earlier target untouched.
//
// Ownership: the controller makes exporters (GetWAVExporter, GetRawAudioExporter)
// and the caller owns them. The clip and the stream passed to Export stay the
// caller's. An export runs on the caller's thread; Cancel may be called from
// any thread.
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>
#include "ILxAudioPlaybackClip.h"
#include "LxAudioCoreExport.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/LxFile.h"
#include "LxPublic/LxString.h"

class ILxStream;
class ILxGeneralProgressCallBack;
class LxAudioController;
class LxAudioResampler;

class LXAUDIOCORE_API LxAudioExporter {
public:
    // Results of Export.
    static constexpr int kExportDone = 0;
    static constexpr int kExportFailed = -1;
    static constexpr int kExportCancelled = -2;
    // Bytes asked of the clip per pull: one page of the store.
    static constexpr int kPullBytes = 176400;
    static constexpr int kMinFrameRate = 1000;
    static constexpr int kMaxFrameRate = 768000;

    LxAudioExporter(LxAudioController& controller, int channels, int frameRate, int bitsPerSample,
                    LxCallBackFunction callback, void* context);
    virtual ~LxAudioExporter();
    LxAudioExporter(const LxAudioExporter&) = delete;
    LxAudioExporter& operator=(const LxAudioExporter&) = delete;

    // File name extensions of the format, without the dot.
    virtual std::vector<LxString> GetSupportedFormats() = 0;
    // Whether the output format given at construction can be written.
    bool IsFormatSupported() const;

    // Exports frames [startFrame, endFrame) of clip (1-based; endFrame -1: to the
    // end of the clip). The clip's read cursor is moved. Results: 0 done, -1
    // failed (reported), -2 cancelled. An empty portion writes a valid file
    // with no audio.
    int Export(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, const LxFile& target);
    // The same into a stream, from its current position on; the stream is left
    // at the end of what was written. A failed or cancelled export takes back
    // what it added to the stream's length and leaves the position where it was.
    int Export(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, ILxStream* target);
    // The whole of a stored clip, loaded by its ID from the controller's store.
    int Export(int clipID, const LxFile& target);

    // Stops the running export before its next block (or the next export, when
    // none runs); that export then gives -2.
    void Cancel() { cancelled = true; }
    // Optional receiver of the task "kLxExportingAudio": the total and the
    // progress are frames of the portion read so far. It may cancel.
    void SetProgressCallBack(ILxGeneralProgressCallBack* receiver) { progress = receiver; }
    ILxGeneralProgressCallBack* GetProgressCallBack() const { return progress; }

    int GetChannels() const { return channels; }
    int GetFrameRate() const { return frameRate; }
    int GetBitsPerSample() const { return bitsPerSample; }
    // Frames written by the last export (at the output's rate).
    int64_t GetFramesWritten() const { return framesWritten; }

protected:
    // --- supplied by the concrete exporter ---------------------------------------
    virtual bool IsSupportedBitsPerSample(int bits) const = 0;
    // Largest number of output frames the format can hold; longer exports are refused.
    virtual int64_t GetMaximumFrames() const { return INT64_MAX; }
    // Writes what comes before the audio. False on a write error.
    virtual bool BeginEncoding(ILxStream& out) = 0;
    // Writes n interleaved 16-bit samples (whole frames). False on a write error.
    virtual bool Encode(const short* samples, int n, ILxStream& out) = 0;
    // Writes what follows the audio and patches what came before; framesWritten
    // is final. Leaves the stream positioned at the end of the export. False on
    // a write error.
    virtual bool EndEncoding(ILxStream& out) = 0;

    // Writes all bytes or reports a failure (false).
    bool WriteAll(ILxStream& out, const void* bytes, int size);
    int BytesPerFrame() const { return channels * bitsPerSample / 8; }

    LxAudioController& controller;
    const int channels;
    const int frameRate;
    const int bitsPerSample;
    LxCallBackFunction callback;
    void* context;
    // Position of the stream where the export started.
    int64_t exportStart = 0;
    int64_t framesWritten = 0;

private:
    int Run(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, ILxStream& out);
    int Pump(ILxAudioPlaybackClip& clip, int64_t frames, ILxStream& out);
    bool Deliver(const short* samples, int n, ILxStream& out);
    bool ResampleAndDeliver(const short* samples, int n, ILxStream& out);
    bool FlushResampler(int64_t inputFrames, ILxStream& out);

    std::atomic<bool> cancelled{false};
    ILxGeneralProgressCallBack* progress = nullptr;
    std::unique_ptr<LxAudioResampler> resampler;
    int64_t expectedFrames = 0;
    std::vector<short> pulled;
    std::vector<float> floatIn;
    std::vector<float> floatOut;
    std::vector<short> resampled;
};
