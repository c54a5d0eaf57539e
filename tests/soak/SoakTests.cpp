// The long run a lecture recording is: one controller captures (simulated, at
// high speed) while clips keep playing, the compressor works through the store,
// and clips are edited and the project saved again and again. At the end the
// recording holds every byte fed in, every playback ended exactly once, and
// every saved project reopens and plays as it did when it was saved. LXAUDIO_SOAK_SECONDS sets the length of the
// recording (two minutes by default; `make soak` runs a full hour under
// AddressSanitizer, whose leak check then runs at exit).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include "DeviceTestSupport.h"
#include "LxPublic/LxStreamUtil.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

// The recorded narration, piece by piece, so that an hour never sits in memory.
std::vector<unsigned char> InputBytes(int64_t first, int64_t samples) {
    return AsBytes(MakePcm(static_cast<int>(samples), 1, [first](int i) {
        const int64_t n = first + i;
        return ((n * 7 + 533) % 20001) - 10000 + (n % 2);
    }));
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
    CallbackRecorder playMusic, playVoice, levels;
    int startsMusic = 0, startsVoice = 0;
    {
        LxAudioController controller;
        const int music = StoreClip(controller, MakeRamp(4 * 44100, 2, 3), 2);
        const int voice = StoreClip(controller, MakeRamp(6 * 44100, 1, 4), 1);
        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &levels));

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
                EXPECT_EQ(controller.MergeClips({voice, edited})->WorthInFrames(), base->WorthInFrames() + part->WorthInFrames());
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
            if (!controller.IsPlayingBack(music)) {
                controller.StartPlayBackOnDefaultDevice(music, 1, -1, &CallbackRecorder::Record, &playMusic);
                ++startsMusic;
            }
            if (!controller.IsPlayingBack(voice)) {
                controller.StartPlayBackOnDefaultDevice(voice, 1, -1, &CallbackRecorder::Record, &playVoice);
                ++startsVoice;
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
        EXPECT_EQ(controller.GetClipBase(captured)->WorthInFrames(), totalSamples);
        int64_t at = 0, rawPages = 0;
        ExpectPagesHoldInput(
            controller, captured,
            [&](int64_t from, int n) { return InputBytes(from / 2, std::clamp<int64_t>(totalSamples * 2 - from, 0, n) / 2); },
            at, rawPages);
        EXPECT_EQ(at, totalSamples * 2);
        std::printf("%lld s recorded: %lld raw pages checked byte for byte, %lld pages compressed, %lld edits, "
                    "%zu saves\n",
                    static_cast<long long>(seconds), static_cast<long long>(rawPages),
                    static_cast<long long>(compressed.load()), static_cast<long long>(edits.load()), saves.size());
    }
    // Every playback ended exactly once, at its end or by the host.
    EXPECT_EQ(playMusic.Count(kLxCallBackPlaybackStopped), startsMusic);
    EXPECT_EQ(playMusic.Count(kLxCallBackPlaybackStarted), startsMusic);
    EXPECT_EQ(playVoice.Count(kLxCallBackPlaybackStopped), startsVoice);
    EXPECT_GE(startsMusic, 2);
    EXPECT_EQ(levels.Count(kLxCallBackInputLevel), seconds * 10);
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
