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

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

static const char* const kSourceFile = "source/components/audiocore/LxAudioImporter";

namespace {

// Decoded samples gathered for one resampler call: big calls let the resampler
// share the work with its second thread (and cost less per sample), and the
// resampler's output does not depend on how the stream is cut into calls.
constexpr size_t kResampleBatchSamples = 32768;

// FloatToSample for a whole buffer, four samples at a time with SSE2 where the
// build has it. Saturating first gives the same result, since the rounding
// cannot leave the 16-bit range from a saturated value (32767 + 0.5 and
// -32768 - 0.5 truncate to the bounds); adding 0.5 with the sign of x is
// FloatToSample's rounding half away from zero (for -0 too: both give 0).
// The resampler's outputs are finite (its inputs are 16-bit samples).
void FloatsToSamples(const float* in, size_t n, short* out) {
    size_t i = 0;
#if defined(__SSE2__) || defined(_M_X64)
    const __m128 scale = _mm_set1_ps(32768.0f);
    const __m128 high = _mm_set1_ps(32767.0f);
    const __m128 low = _mm_set1_ps(-32768.0f);
    const __m128 half = _mm_set1_ps(0.5f);
    const __m128 sign = _mm_set1_ps(-0.0f);
    for (; i + 8 <= n; i += 8) {
        __m128 a = _mm_mul_ps(_mm_loadu_ps(in + i), scale);
        __m128 b = _mm_mul_ps(_mm_loadu_ps(in + i + 4), scale);
        a = _mm_max_ps(_mm_min_ps(a, high), low);
        b = _mm_max_ps(_mm_min_ps(b, high), low);
        a = _mm_add_ps(a, _mm_or_ps(half, _mm_and_ps(a, sign)));
        b = _mm_add_ps(b, _mm_or_ps(half, _mm_and_ps(b, sign)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packs_epi32(_mm_cvttps_epi32(a), _mm_cvttps_epi32(b)));
    }
#endif
    for (; i < n; ++i) out[i] = LxAudioImporter::FloatToSample(in[i]);
}

}  // namespace

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
    // The suppressor's buffers serve here too (it is done with them by now):
    // floats in, floats out, and the 16-bit result in denoised, written only
    // once data (which may be denoised) has been read. They only ever grow.
    const size_t count = static_cast<size_t>(n);
    if (floatIn.size() < count) floatIn.resize(count);
    for (size_t i = 0; i < count; ++i) floatIn[i] = static_cast<float>(data[i]) * 3.0517578e-5f;
    const unsigned capacity = resampler->GetOutputBufferSize(static_cast<unsigned>(n));
    if (floatOut.size() < capacity) floatOut.resize(capacity);
    unsigned produced = resampler->Process(floatIn.data(), static_cast<unsigned>(n), floatOut.data(), capacity);
    produced = std::min(produced, capacity);
    if (denoised.size() < produced) denoised.resize(produced);
    FloatsToSamples(floatOut.data(), produced, denoised.data());
    clip->AppendPCMData(reinterpret_cast<const unsigned char*>(denoised.data()), static_cast<int>(produced * 2), channels,
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
    std::vector<short> batch;  // decoded samples waiting for the resampler
    auto resampleBatch = [&] {
        if (batch.empty()) return true;
        try {
            DoResamplingAppendPCMData(batch.data(), static_cast<int>(batch.size()), clip.get());
        } catch (...) {
            Finalize();
            if (progress) progress->EndTask();
            return false;
        }
        batch.clear();
        return true;
    };
    bytesConsumed = 0;
    int64_t read = 0;
    int available = 0, consumed = 0, offset = 0;
    do {
        // A page the store refused (it is full) ends the import: the clip
        // would lack audio, so it is not stored.
        if (cancelled || decodeFailed || clip->HasLostAudio()) break;
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
                if (batch.capacity() == 0) batch.reserve(kResampleBatchSamples + static_cast<size_t>(kDecodedBytes));
                batch.insert(batch.end(), pcm, pcm + samples);
                if (batch.size() >= kResampleBatchSamples && !resampleBatch()) return -1;
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
    if (!cancelled && !decodeFailed && !clip->HasLostAudio() && !resampleBatch()) return -1;
    Finalize();

    int result = -2;
    if (decodeFailed || clip->HasLostAudio()) {
        result = -1;
    } else if (!cancelled) {
        result = clip->FinishAppendingPCMData(channels, kLxFrameRate, kLxBitsPerSample, 1.0f);
        lengthMS = clip->WorthInDeciSeconds() * 100;
    }
    if (progress) progress->EndTask();
    return result;
}
