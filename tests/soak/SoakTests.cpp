// The long run a lecture recording is: one controller captures (simulated, at
// high speed) while clips keep playing, the compressor works through the store,
// and clips are edited and the project saved again and again. At the end the
// recording holds every byte fed in, and every saved project reopens and plays
// as it did when it was saved. LXAUDIO_SOAK_SECONDS sets the length of the
// recording (two minutes by default; `make soak` runs a full hour under
// AddressSanitizer, whose leak check then runs at exit).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <list>
#include <thread>
#include "DeviceTestSupport.h"
#include "LxAudioController.h"
#include "LxAudioFile.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

// The recorded narration, sample by sample, so that an hour never sits in memory.
int16_t InputSample(int64_t i) { return static_cast<int16_t>(((i * 7 + 533) % 20001) - 10000 + (i % 2)); }

std::vector<unsigned char> InputBytes(int64_t firstSample, int64_t samples) {
    std::vector<unsigned char> bytes(static_cast<size_t>(samples) * 2);
    for (int64_t i = 0; i < samples; ++i) {
        const auto v = static_cast<uint16_t>(InputSample(firstSample + i));
        bytes[static_cast<size_t>(2 * i)] = static_cast<unsigned char>(v);
        bytes[static_cast<size_t>(2 * i + 1)] = static_cast<unsigned char>(v >> 8);
    }
    return bytes;
}

int Store(LxAudioController& controller, const std::vector<int16_t>& pcm, int channels) {
    auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_IMPORT);
    clip->AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), static_cast<int>(pcm.size() * 2),
                        channels, 44100, 16, 1.0f);
    return clip->FinishAppendingPCMData(channels, 44100, 16, 1.0f);
}

uint64_t Fingerprint(const std::vector<int16_t>& pcm) {
    uint64_t h = 1469598103934665603ull;
    for (int16_t s : pcm) h = (h ^ static_cast<uint16_t>(s)) * 1099511628211ull;
    return h ^ pcm.size();
}

std::vector<int16_t> Play(LxAudioController& controller, int clipID) {
    auto clip = controller.GetClip(clipID);
    return ReadAll(*clip, 1, 88200);
}

struct Save {
    LxFile file;
    int clipID;
    uint64_t fingerprint;
};

int SoakSeconds() {
    const char* text = std::getenv("LXAUDIO_SOAK_SECONDS");
    const int seconds = text ? std::atoi(text) : 0;
    return seconds > 0 ? seconds : 120;
}

}  // namespace

using Soak = SimulatedDeviceTest;

TEST_F(Soak, RecordingWhilePlayingCompressingEditingAndSaving) {
    const int64_t seconds = SoakSeconds();
    const int64_t totalSamples = seconds * 44100;
    // Paced, so that the other threads get real work done while the input
    // arrives: twelve seconds for the default run, two minutes for an hour.
    Sim().SetSpeed(seconds <= 300 ? 10.0 : 30.0);
    TempDir tmp;
    std::vector<Save> saves;
    std::atomic<int64_t> compressed{0}, edits{0};
    // The host asks for a save each time another sixth of the input is in.
    std::atomic<int> savesAsked{0};
    int savesMade = 0;
    {
        LxAudioController controller;
        const int music = Store(controller, MakeRamp(4 * 44100, 2, 3), 2);
        const int voice = Store(controller, MakeRamp(6 * 44100, 1, 4), 1);
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));

        std::atomic<bool> stop{false};
        std::thread compressor([&] {
            while (!stop) {
                if (controller.CompressOnePage()) {
                    ++compressed;
                } else {
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
            }
        });
        std::thread editor([&] {
            int round = 0;
            while (!stop) {
                auto base = controller.GetClipBase(voice);
                auto part = base->SubClip(100 + round % 900, 3000);
                ASSERT_TRUE(part);
                part->AppendClip(*base);
                const int edited = part->WriteToAudioFile();
                ++edits;
                ++round;
                if (savesMade < savesAsked) {
                    ++savesMade;
                    // Saved as a host saves: a new file, flushed, renamed into place. The
                    // compressor may change the clip's pages while it is read; a reading
                    // that two plays agree on is what the save must hold.
                    Save save{tmp.Child(("project" + std::to_string(saves.size()) + ".lxp").c_str()), edited, 0};
                    LxFile fresh(save.file.GetPath() + ".new");
                    for (int attempt = 0; attempt < 5; ++attempt) {
                        const uint64_t before = Fingerprint(Play(controller, edited));
                        bool ok;
                        {
                            auto out = LxStreamUtil::CreateFileStreamReadWrite(fresh, kLxStreamWrite, 0x3f3f3f3f,
                                                                               0x3f3f3f3f);
                            ok = out && controller.WriteTo(out.get()) && out->Sync();
                        }
                        ASSERT_TRUE(ok && fresh.RenameTo(save.file));
                        if (Fingerprint(Play(controller, edited)) == before) {
                            save.fingerprint = before;
                            break;
                        }
                    }
                    if (save.fingerprint != 0) saves.push_back(save);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        });

        // The host's thread feeds the input in ten-second pieces, never more than
        // half a minute ahead, and keeps two playbacks going.
        int64_t fed = 0;
        int round = 0;
        while (fed < totalSamples || Sim().GetPendingInputBytes() > 0) {
            if (fed < totalSamples && Sim().GetPendingInputBytes() < 30 * 88200) {
                const int64_t n = std::min<int64_t>(10 * 44100, totalSamples - fed);
                const std::vector<unsigned char> piece = InputBytes(fed, n);
                Sim().FeedInput(piece.data(), piece.size());
                fed += n;
                savesAsked = static_cast<int>(fed * 6 / totalSamples);
            }
            for (int clip : {music, voice}) {
                if (!controller.IsPlayingBack(clip)) controller.StartPlayBackOnDefaultDevice(clip, 1, -1, nullptr, nullptr);
            }
            if (++round % 5 == 0) controller.StopPlayBack(voice);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ASSERT_TRUE(Sim().WaitUntilInputConsumed(5 * kGuardMilliseconds));
        const int captured = controller.StopCapture();
        stop = true;
        compressor.join();
        editor.join();
        controller.StopPlayBack(-1);
        ASSERT_NE(captured, -1);

        // Every byte fed in, in order: raw pages exactly, pages the compressor
        // encoded by their length.
        auto clip = controller.GetClipBase(captured);
        EXPECT_EQ(clip->WorthInFrames(), totalSamples);
        LxAudioFile& file = *controller.GetAudioFile();
        std::vector<unsigned char> page(176400);
        int64_t at = 0, rawPages = 0;
        for (const LxPageRange& range : clip->GetPageRanges()) {
            for (int id = range.startPage; id <= range.endPage; id += kLxPageRecordBytes) {
                LxPCMData record;
                ASSERT_TRUE(file.ReadPageHeader(id, record));
                const int lo = id == range.startPage ? range.startOffset : 0;
                const int hi = id == range.endPage ? range.endOffset : record.pcmBytes;
                if (record.codec == kLxPageCodecRaw) {
                    int got = 0;
                    file.ReadPageData(record, 1, page.data(), static_cast<int>(page.size()), got);
                    const std::vector<unsigned char> expected = InputBytes(at / 2, (hi - lo) / 2);
                    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), page.begin() + lo)) << "page " << id;
                    ++rawPages;
                }
                at += hi - lo;
            }
        }
        EXPECT_EQ(at, totalSamples * 2);
        std::printf("%lld s recorded: %lld raw pages checked byte for byte, %lld pages compressed, %lld edits, "
                    "%zu saves\n",
                    static_cast<long long>(seconds), static_cast<long long>(rawPages),
                    static_cast<long long>(compressed.load()), static_cast<long long>(edits.load()), saves.size());
    }
    ASSERT_FALSE(saves.empty());
    for (const Save& save : saves) {
        SCOPED_TRACE(save.file.GetPath().str());
        LxAudioController reopened;
        auto in = LxStreamUtil::CreateFileStreamRead(save.file);
        ASSERT_TRUE(in && reopened.ReadFrom(in.get()));
        EXPECT_EQ(Fingerprint(Play(reopened, save.clipID)), save.fingerprint);
    }
    EXPECT_GT(compressed.load(), 0);
}
