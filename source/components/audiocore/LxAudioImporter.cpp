#include "LxAudioImporter.h"

#include <algorithm>
#include <cctype>
#include <string>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioClip.h"
#include "LxAudioController.h"
#include "LxAudioFile.h"
#include "LxAudioResampler.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxStreamUtil.h"
#include "SingleChannelAdaptiveNoise.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioImporter";

LxAudioImporter::LxAudioImporter(LxAudioController& owner, LxCallBackFunction callbackFunction, void* callbackContext,
                                 bool reduceNoise)
    : controller(owner),
      callback(callbackFunction),
      context(callbackContext),
      decoded(kDecodedBytes),
      noiseReduce(reduceNoise),
      denoised(kDecodedBytes),
      floatIn(kDecodedBytes),
      floatOut(kDecodedBytes) {}

LxAudioImporter::~LxAudioImporter() {
    resampler.reset();
    suppressor.reset();
}

int LxAudioImporter::Import(const LxFile& file) {
    std::unique_ptr<ILxReadWriteStream> source = LxStreamUtil::CreateFileStreamRead(file, 1, kLxStreamBufferArgument, kLxStreamBufferArgument);
    if (!source) {
        LxAssertFailed("cannot open the file to import", kSourceFile, __LINE__);
        return -1;
    }
    return Import(source.get());
}

int LxAudioImporter::Import(ILxStream* source) {
    stream = source;
    if (stream == nullptr) {
        LxAssertFailed("no stream to import", kSourceFile, __LINE__);
        return -1;
    }
    try {
        return DoImport();
    } catch (...) {
        LxReportAt("Import Failed.", LxReportSites::kImportFailed);
        return -1;
    }
}

bool LxAudioImporter::HasSupportedExtension(const LxString& fileName) {
    const std::string& name = fileName.str();
    auto sameLetter = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    for (const LxString& format : GetSupportedFormats()) {
        const std::string suffix = "." + format.str();
        if (name.size() >= suffix.size() &&
            std::equal(suffix.begin(), suffix.end(), name.end() - static_cast<std::ptrdiff_t>(suffix.size()), sameLetter))
            return true;
    }
    return false;
}

short LxAudioImporter::FloatToSample(float f) {
    float x = f * 32768.0f;
    if (x > 32767.0f) return 32767;
    if (x < -32768.0f) return -32768;
    return static_cast<short>(x >= 0.0f ? x + 0.5f : x - 0.5f);
}

void LxAudioImporter::Denoise(const short* samples, int n) {
    // One suppressor for the importer's life, so that its noise estimate carries
    // over from chunk to chunk. Stereo samples pass through it interleaved, as
    // one channel.
    if (!suppressor) suppressor = std::make_unique<dsp::SingleChannelAdaptiveNoise>();
    for (int i = 0; i < n; ++i) floatIn[static_cast<size_t>(i)] = static_cast<float>(samples[i]) * 3.0517578e-5f;
    suppressor->Process(floatIn.data(), floatOut.data(), n);
    for (int i = 0; i < n; ++i) denoised[static_cast<size_t>(i)] = FloatToSample(floatOut[static_cast<size_t>(i)]);
}

void LxAudioImporter::DoResamplingAppendPCMData(short* data, int n, LxAudioClip* clip) {
    if (n <= 0 || clip == nullptr) return;
    if (!resampler) {
        resampler = std::make_unique<LxAudioResampler>(static_cast<unsigned>(sampleRate), static_cast<unsigned>(kLxFrameRate), channels);
    }
    std::vector<float> in(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) in[static_cast<size_t>(i)] = static_cast<float>(data[i]) * 3.0517578e-5f;
    unsigned capacity = resampler->GetOutputBufferSize(static_cast<unsigned>(n));
    std::vector<float> out(capacity);
    unsigned produced = resampler->Process(in.data(), static_cast<unsigned>(n), out.data(), capacity);
    produced = std::min(produced, capacity);
    std::vector<short> result(produced);
    for (unsigned i = 0; i < produced; ++i) result[i] = FloatToSample(out[i]);
    clip->AppendPCMData(reinterpret_cast<const unsigned char*>(result.data()), static_cast<int>(produced * 2), channels,
                        kLxFrameRate, kLxBitsPerSample, 1.0f);
}

int LxAudioImporter::DoImport() {
    if (!Initialize()) return -1;
    int64_t headerSize = GetHeaderSize();
    int64_t footerSize = GetFooterSize();
    stream->Seek(0, kLxSeekEnd);
    int64_t size = stream->GetPosition();
    int64_t dataBytes = std::max<int64_t>(0, size - footerSize - headerSize);
    if (progress) progress->BeginTask("kLxImportingAudio", static_cast<int>(std::min<int64_t>(dataBytes, INT32_MAX)), 0);
    stream->Seek(headerSize, kLxSeekBegin);

    std::unique_ptr<LxAudioClip> clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_IMPORT);
    std::vector<unsigned char> input(kChunkBytes);
    bytesConsumed = 0;
    int64_t read = 0;
    int available = 0, consumed = 0, offset = 0;
    do {
        if (cancelled || decodeFailed) break;
        if (consumed < available) {
            offset += consumed;
            available -= consumed;
        } else {
            available = stream->Read(input.data(), kChunkBytes);
            // A stream that gives nothing more must also report its end, even
            // after a read error, or the loop would never stop.
            if (available <= 0) {
                available = 0;
                stream->Seek(0, kLxSeekEnd);
            }
            if (read + available > dataBytes) available = static_cast<int>(std::max<int64_t>(0, dataBytes - read));
            read += available;
            offset = 0;
        }
        int outBytes = 0;
        consumed = Decode(available > 0 ? input.data() + offset : nullptr, available, decoded.data(), outBytes,
                          kDecodedBytes);
        consumed = std::clamp(consumed, 0, available);
        outBytes = std::clamp(outBytes, 0, kDecodedBytes);
        if (outBytes > 0) {
            int samples = outBytes / 2;
            short* pcm = reinterpret_cast<short*>(decoded.data());
            if (noiseReduce) {
                Denoise(pcm, samples);
                pcm = denoised.data();
            }
            if (sampleRate != kLxFrameRate) {
                try {
                    DoResamplingAppendPCMData(pcm, samples, clip.get());
                } catch (...) {
                    Finalize();
                    if (progress) progress->EndTask();
                    return -1;
                }
            } else {
                clip->AppendPCMData(reinterpret_cast<const unsigned char*>(pcm), outBytes, channels, kLxFrameRate, kLxBitsPerSample, 1.0f);
            }
        }
        if (progress) {
            progress->ReportProgress(static_cast<int>(std::clamp<int64_t>(GetProgressPosition(read), 0, INT32_MAX)));
            if (progress->IsCancelled()) cancelled = true;
        }
        bytesConsumed += consumed;
        // Nothing consumed from a non-empty chunk would repeat forever.
        if (available > 0 && consumed == 0 && outBytes == 0) break;
    } while (!IsDecoderEOF());
    Finalize();

    int result = -2;
    if (decodeFailed) {
        result = -1;
    } else if (!cancelled) {
        result = clip->FinishAppendingPCMData(channels, kLxFrameRate, kLxBitsPerSample, 1.0f);
        lengthMS = clip->WorthInDeciSeconds() * 100;
    }
    if (progress) progress->EndTask();
    return result;
}
