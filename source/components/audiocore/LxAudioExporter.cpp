#include "LxAudioExporter.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <random>
#include "LxAudioConstants.h"
#include "LxAudioController.h"
#include "LxAudioImporter.h"
#include "LxAudioResampler.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/ILxStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxStreamUtil.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioExporter";

namespace {

// A name next to the target that no other export uses at the same time, so
// that the final rename stays within one directory (and one file system).
LxFile TemporaryFileNextTo(const LxFile& target) {
    static std::atomic<unsigned> counter{0};
    static const unsigned long long seed = [] {
        std::random_device device;
        auto now = static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count());
        return (static_cast<unsigned long long>(device()) << 20) ^ now;
    }();
    unsigned long long unique = seed + 0x9E3779B97F4A7C15ull * (counter.fetch_add(1) + 1ull);
    static const char kHex[] = "0123456789abcdef";
    std::string suffix = ".";
    for (int i = 0; i < 12; ++i) suffix += kHex[(unique >> (4 * i)) & 0xF];
    suffix += ".lxpart";
    return LxFile(target.GetPath() + LxString(suffix));
}

// Frames at the output's rate that frames at 44100 become, rounded to the nearest.
int64_t OutputFramesFor(int64_t frames, int frameRate) {
    if (frameRate == kLxFrameRate) return frames;
    return (frames * frameRate + kLxFrameRate / 2) / kLxFrameRate;
}

}  // namespace

LxAudioExporter::LxAudioExporter(LxAudioController& owner, int outputChannels, int outputFrameRate, int outputBits,
                                 LxCallBackFunction callbackFunction, void* callbackContext)
    : controller(owner),
      channels(outputChannels),
      frameRate(outputFrameRate),
      bitsPerSample(outputBits),
      callback(callbackFunction),
      context(callbackContext) {}

LxAudioExporter::~LxAudioExporter() = default;

bool LxAudioExporter::IsFormatSupported() const {
    return (channels == 1 || channels == 2) && frameRate >= kMinFrameRate && frameRate <= kMaxFrameRate &&
           IsSupportedBitsPerSample(bitsPerSample);
}

bool LxAudioExporter::WriteAll(ILxStream& out, const void* bytes, int size) {
    if (size <= 0) return true;
    if (out.Write(bytes, size) != size) {
        LxAssertFailed("Cannot write the exported audio", kSourceFile, __LINE__);
        return false;
    }
    return true;
}

int LxAudioExporter::Export(int clipID, const LxFile& target) {
    std::list<int> known;
    controller.GetListOfClipIDs(known);
    if (std::find(known.begin(), known.end(), clipID) == known.end()) {
        LxAssertFailed("No such clip to export", kSourceFile, __LINE__);
        return kExportFailed;
    }
    std::unique_ptr<LxAudioClip> clip = controller.GetClip(clipID);
    return Export(*clip, 1, -1, target);
}

int LxAudioExporter::Export(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, const LxFile& target) {
    framesWritten = 0;
    if (!IsFormatSupported()) {
        LxAssertFailed("Not supported format", kSourceFile, __LINE__);
        return kExportFailed;
    }
    if (target.GetPath().IsEmpty() || target.IsDirectory()) {
        LxAssertFailed("The export target is not a file name", kSourceFile, __LINE__);
        return kExportFailed;
    }
    LxFile temporary = TemporaryFileNextTo(target);
    std::unique_ptr<ILxReadWriteStream> stream =
        LxStreamUtil::CreateFileStreamReadWrite(temporary, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
    if (!stream) {
        LxAssertFailed("Cannot create the export file", kSourceFile, __LINE__);
        return kExportFailed;
    }
    // The disk starts on the file while it is written, so that the sync below
    // has little left to wait for.
    stream->SetWriteBehind(true);
    int result = Export(clip, startFrame, endFrame, stream.get());
    // On the disk before it takes the target's name, so that a crash leaves
    // either the old target or the complete new one.
    if (result == kExportDone && !stream->Sync()) {
        LxAssertFailed("Cannot write the export file", kSourceFile, __LINE__);
        result = kExportFailed;
    }
    stream->Close();
    stream.reset();
    if (result == kExportDone && !temporary.RenameTo(target)) {
        LxAssertFailed("Cannot replace the export target", kSourceFile, __LINE__);
        result = kExportFailed;
    }
    if (result != kExportDone) temporary.Delete();
    return result;
}

int LxAudioExporter::Export(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, ILxStream* target) {
    framesWritten = 0;
    if (target == nullptr || !target->IsOpen()) {
        LxAssertFailed("No stream to export to", kSourceFile, __LINE__);
        return kExportFailed;
    }
    exportStart = target->GetPosition();
    const int64_t originalLength = target->GetLength();
    int result = kExportFailed;
    try {
        result = Run(clip, startFrame, endFrame, *target);
    } catch (...) {
        LxAssertFailed("Export Failed.", kSourceFile, __LINE__);
        result = kExportFailed;
    }
    resampler.reset();
    if (result != kExportDone) {
        // What a failed or cancelled export added to the stream goes again.
        if (target->GetLength() > originalLength) {
            target->Seek(std::max(exportStart, originalLength), kLxSeekBegin);
            target->Truncate();
        }
        target->Seek(exportStart, kLxSeekBegin);
        framesWritten = 0;
    }
    if (result == kExportCancelled) cancelled = false;
    return result;
}

int LxAudioExporter::Run(ILxAudioPlaybackClip& clip, int startFrame, int endFrame, ILxStream& out) {
    if (!IsFormatSupported()) {
        LxAssertFailed("Not supported format", kSourceFile, __LINE__);
        return kExportFailed;
    }
    const int64_t total = clip.WorthInFrames();
    // Frames count from 1 and the end is exclusive: total + 1 ends at the clip's end.
    if (startFrame < 1 || startFrame > total + 1 ||
        (endFrame != -1 && (endFrame < startFrame || endFrame > total + 1))) {
        LxAssertFailed("Invalid portion to export", kSourceFile, __LINE__);
        return kExportFailed;
    }
    const int64_t end = endFrame == -1 ? total + 1 : endFrame;
    const int64_t frames = end - startFrame;
    expectedFrames = OutputFramesFor(frames, frameRate);
    if (expectedFrames > GetMaximumFrames()) {
        LxAssertFailed("Too long for the export format", kSourceFile, __LINE__);
        return kExportFailed;
    }
    if (cancelled) return kExportCancelled;

    if (progress) progress->BeginTask("kLxExportingAudio", static_cast<int>(std::min<int64_t>(frames, INT32_MAX)), 0);
    int result = BeginEncoding(out) ? kExportDone : kExportFailed;
    if (result == kExportDone && frames > 0) {
        clip.SetPortionToBePlayedBack(startFrame, end == total + 1 ? -1 : static_cast<int>(end));
        result = Pump(clip, frames, out);
    }
    if (result == kExportDone && !EndEncoding(out)) result = kExportFailed;
    if (progress) progress->EndTask();
    return result;
}

int LxAudioExporter::Pump(ILxAudioPlaybackClip& clip, int64_t frames, ILxStream& out) {
    if (frameRate != kLxFrameRate) {
        resampler = std::make_unique<LxAudioResampler>(static_cast<unsigned>(kLxFrameRate), static_cast<unsigned>(frameRate), channels);
    }
    const int frameBytes = channels * 2;
    // Room for one pull and a partial frame left over from the one before.
    pulled.assign(static_cast<size_t>(kPullBytes + frameBytes) / 2, 0);
    unsigned char* bytes = reinterpret_cast<unsigned char*>(pulled.data());
    int carry = 0;
    int64_t framesRead = 0;
    int emptyPulls = 0;
    while (framesRead < frames) {
        if (cancelled) return kExportCancelled;
        int got = 0;
        clip.GetNextPCMData(channels, bytes + carry, kPullBytes, got, nullptr, false);
        if (got <= 0) {
            // One empty pull may come before the end; two in a row are the end.
            if (++emptyPulls >= 2) break;
            continue;
        }
        emptyPulls = 0;
        got = std::min(got, kPullBytes);
        int available = carry + got;
        int whole = available / frameBytes;
        int take = static_cast<int>(std::min<int64_t>(whole, frames - framesRead));
        if (!Deliver(pulled.data(), take * channels, out)) return kExportFailed;
        framesRead += take;
        carry = available - whole * frameBytes;
        if (carry > 0) std::memmove(bytes, bytes + whole * frameBytes, static_cast<size_t>(carry));
        if (progress) {
            progress->ReportProgress(static_cast<int>(std::min<int64_t>(framesRead, INT32_MAX)));
            if (progress->IsCancelled()) cancelled = true;
        }
    }
    if (cancelled) return kExportCancelled;
    if (resampler && !FlushResampler(framesRead, out)) return kExportFailed;
    return kExportDone;
}

bool LxAudioExporter::Deliver(const short* samples, int n, ILxStream& out) {
    if (n <= 0) return true;
    if (resampler) return ResampleAndDeliver(samples, n, out);
    if (!Encode(samples, n, out)) return false;
    framesWritten += n / channels;
    return true;
}

bool LxAudioExporter::ResampleAndDeliver(const short* samples, int n, ILxStream& out) {
    floatIn.resize(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) floatIn[static_cast<size_t>(i)] = static_cast<float>(samples[i]) * 3.0517578e-5f;
    unsigned capacity = resampler->GetOutputBufferSize(static_cast<unsigned>(n));
    floatOut.resize(capacity);
    unsigned produced = resampler->Process(floatIn.data(), static_cast<unsigned>(n), floatOut.data(), capacity);
    int64_t count = std::min<int64_t>(produced, capacity);
    // Whole frames, and never more than the portion comes to at the output's rate.
    count -= count % channels;
    count = std::min<int64_t>(count, (expectedFrames - framesWritten) * channels);
    if (count <= 0) return true;
    resampled.resize(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        resampled[static_cast<size_t>(i)] = LxAudioImporter::FloatToSample(floatOut[static_cast<size_t>(i)]);
    }
    if (!Encode(resampled.data(), static_cast<int>(count), out)) return false;
    framesWritten += count / channels;
    return true;
}

bool LxAudioExporter::FlushResampler(int64_t inputFrames, ILxStream& out) {
    // The filters hold back their delay's worth of output; silence pushes the
    // end of the audio out of them, and the result is cut to the portion's
    // length at the output's rate.
    int64_t target = std::min(OutputFramesFor(inputFrames, frameRate), expectedFrames);
    expectedFrames = target;
    const int blockFrames = 1024;
    std::vector<short> silence(static_cast<size_t>(blockFrames * channels), 0);
    for (int block = 0; block < 64 && framesWritten < target; ++block) {
        if (!ResampleAndDeliver(silence.data(), blockFrames * channels, out)) return false;
    }
    return true;
}
