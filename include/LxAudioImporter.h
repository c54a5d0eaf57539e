#pragma once
// Base of every importer. It runs the import loop that all formats share:
// measure the source's audio data, let the concrete importer decode it chunk by
// chunk into 16-bit PCM, optionally pass it through the noise suppressor,
// resample it to 44100 frames per second when the source has another rate,
// append it to a new clip and store the clip. A concrete importer supplies the
// format: Initialize, the header and footer sizes, Decode and IsDecoderEOF.
// An importer serves one import; it is made by the controller and owned by the caller.
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>
#include "LxAudioCoreExport.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/LxFile.h"
#include "LxPublic/LxString.h"

class ILxStream;
class ILxGeneralProgressCallBack;
class LxAudioController;
class LxAudioClip;
class LxAudioResampler;
namespace dsp {
class SingleChannelAdaptiveNoise;
}

class LXAUDIOCORE_API LxAudioImporter {
public:
    static constexpr int kChunkBytes = 4092;
    static constexpr int kDecodedBytes = 8184;

    LxAudioImporter(LxAudioController& controller, LxCallBackFunction callback, void* context, bool noiseReduce);
    virtual ~LxAudioImporter();
    LxAudioImporter(const LxAudioImporter&) = delete;
    LxAudioImporter& operator=(const LxAudioImporter&) = delete;

    virtual std::vector<LxString> GetSupportedFormats() = 0;
    virtual bool CanImport(ILxStream* stream) = 0;
    virtual bool CanImport(const LxFile& file) = 0;
    virtual bool CanImport(const LxString& fileName) = 0;
    // Both return the new clip's ID; -1 when nothing could be imported (a null
    // stream gives an assertion report), -2 when cancelled.
    virtual int Import(ILxStream* stream);
    virtual int Import(const LxFile& file);
    virtual void ReadHeader(ILxStream*) {}
    virtual unsigned int GetHeaderSize() = 0;
    virtual unsigned int GetFooterSize() = 0;
    virtual unsigned int GetAudioDataSize(ILxStream* stream) = 0;
    // Decodes inBytes of source data (in may be null when inBytes is 0) into at
    // most outCapacity bytes of 16-bit PCM; returns the input bytes consumed.
    virtual int Decode(const unsigned char* in, int inBytes, unsigned char* out, int& outBytes, int outCapacity) = 0;
    virtual bool Initialize() = 0;
    virtual void Finalize() = 0;
    // May be called from another thread; the loop stops before its next chunk.
    virtual void Cancel() { cancelled = true; }
    virtual int GetAudioChannels() { return channels; }
    virtual int GetAudioLengthMilliSeconds() { return lengthMS; }
    virtual int GetAudioBitRate() { return bitsPerSample * sampleRate * channels; }
    virtual int GetAudioSampleRate() { return sampleRate; }
    virtual short IsDecoderEOF() = 0;
    // Resamples n interleaved samples to 44100 frames per second and appends them to clip.
    virtual void DoResamplingAppendPCMData(short* data, int n, LxAudioClip* clip);
    virtual int DoImport();
    // What the loop reports to the progress receiver: by default the source bytes
    // it has read itself. An importer whose decoder reads the source on its own
    // (Ogg Vorbis) reports its decoder's position instead.
    virtual int64_t GetProgressPosition(int64_t bytesReadByTheLoop) { return bytesReadByTheLoop; }

    // A source cut short (a download or a copy that stopped early) is imported
    // up to where it ends; these tell a host how much it lacks. Known once
    // Import has read the source's headers, also when the import failed later:
    // the frames per channel, at the source's own rate, that its headers promise
    // (-1 when they promise no length: a format without one, a WAV data chunk
    // of unknown size, nothing read yet), and the frames it holds (-1 when not
    // known). IsCutShort: the source ends before its headers say it should
    // (GetFoundFrames() < GetPromisedFrames(), or an Ogg stream whose last page
    // is missing, when no length may be promised).
    int64_t GetPromisedFrames() const { return promisedFrames; }
    int64_t GetFoundFrames() const { return foundFrames; }
    bool IsCutShort() const { return cutShort; }

    void SetProgressCallBack(ILxGeneralProgressCallBack* receiver) { progress = receiver; }
    ILxGeneralProgressCallBack* GetProgressCallBack() const { return progress; }

    // f x 32768 rounded half away from zero, saturated to the 16-bit range.
    static short FloatToSample(float f);

protected:
    // Whether fileName ends in "." and one of GetSupportedFormats(), in any
    // case: what every importer's CanImport(fileName) checks.
    bool HasSupportedExtension(const LxString& fileName);

    ILxStream* stream = nullptr;
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    int lengthMS = 0;
    std::unique_ptr<LxAudioResampler> resampler;
    int bytesConsumed = 0;
    LxAudioController& controller;
    LxCallBackFunction callback;
    void* context;
    std::vector<unsigned char> decoded;
    std::atomic<bool> cancelled{false};
    // Set by a concrete importer that finds its source damaged half-way (after
    // reporting it): the loop stops, nothing is stored and the import gives -1.
    bool decodeFailed = false;
    ILxGeneralProgressCallBack* progress = nullptr;
    // See GetPromisedFrames; set by the concrete importer's Initialize.
    int64_t promisedFrames = -1;
    int64_t foundFrames = -1;
    bool cutShort = false;
    bool noiseReduce;
    std::vector<short> denoised;
    std::unique_ptr<dsp::SingleChannelAdaptiveNoise> suppressor;
    std::vector<float> floatIn;
    std::vector<float> floatOut;

private:
    void Denoise(const short* samples, int n);
};
