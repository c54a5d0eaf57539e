// A capture under load: while a minute of (fast-paced) input is recorded, two
// playbacks keep restarting, the compressor works through the store and an
// editor cuts, stores, merges and saves, all on the same controller. Nothing
// may deadlock, and the recording must hold every byte that was fed in.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include "DeviceTestSupport.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"

using DeviceConcurrency = SimulatedDeviceTest;

TEST_F(DeviceConcurrency, AMinuteOfCaptureWithPlaybacksCompressionAndEdits) {
    // Twenty times real time: the minute takes three seconds.
    Sim().SetSpeed(20.0);
    const int seconds = 60;
    std::vector<unsigned char> input = AsBytes(MakeRamp(seconds * 44100, 1, 41));
    CallbackRecorder playbackA, playbackB, levels;
    int startsA = 0, startsB = 0;
    std::atomic<int> compressed{0}, edits{0};
    {
        LxAudioController controller;
        int clipA = StoreClip(controller, MakeRamp(3 * 44100, 2, 42), 2);
        int clipB = StoreClip(controller, MakeRamp(2 * 44100 + 2160, 1, 43), 1);
        int editID = StoreClip(controller, MakeRamp(5 * 44100, 1, 44), 1);

        ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &levels));
        Sim().FeedInput(input.data(), input.size());

        std::atomic<bool> stop{false};
        std::thread compressor([&] {
            while (!stop) {
                if (controller.CompressOnePage()) {
                    ++compressed;
                } else {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
        });
        std::thread editor([&] {
            while (!stop) {
                auto base = controller.GetClipBase(editID);
                auto part = base->SubClip(200, 1500);
                ASSERT_TRUE(part);
                int added = 0;
                part->AppendSilenceFrames(4410, added, true);
                part->AppendClip(*base);
                int stored = part->WriteToAudioFile();
                auto merged = controller.MergeClips({editID, stored, clipB});
                EXPECT_EQ(merged->WorthInFrames(), base->WorthInFrames() + part->WorthInFrames() + 2 * 44100 + 2160);
                LxMemoryStream saved;
                EXPECT_TRUE(controller.WriteTo(&saved));
                ++edits;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });

        // The host's thread keeps both playbacks going, and now and then stops one.
        int round = 0;
        while (Sim().GetPendingInputBytes() > 0) {
            if (!controller.IsPlayingBack(clipA)) {
                controller.StartPlayBackOnDefaultDevice(clipA, 1, -1, &CallbackRecorder::Record, &playbackA);
                ++startsA;
            }
            if (!controller.IsPlayingBack(clipB)) {
                controller.StartPlayBackOnDefaultDevice(clipB, 1, -1, &CallbackRecorder::Record, &playbackB);
                ++startsB;
            }
            if (++round % 7 == 0) controller.StopPlayBack(clipB);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(Sim().WaitUntilInputConsumed(5 * kGuardMilliseconds));
        int clipID = controller.StopCapture();
        stop = true;
        compressor.join();
        editor.join();
        controller.StopPlayBack(-1);
        ASSERT_NE(clipID, -1);
        int64_t bytes = 0, rawPages = 0;
        ExpectPagesHoldInput(controller, clipID, [&](int64_t at, int n) {
            return std::vector<unsigned char>(input.begin() + at, input.begin() + std::min<int64_t>(at + n, input.size()));
        }, bytes, rawPages);
        EXPECT_EQ(bytes, static_cast<int64_t>(input.size()));
        EXPECT_EQ(controller.GetClipBase(clipID)->WorthInBytes(), static_cast<int>(input.size()));
    }
    // Every playback ended exactly once, at its end or by the host.
    EXPECT_EQ(playbackA.Count(kLxCallBackPlaybackStopped), startsA);
    EXPECT_EQ(playbackB.Count(kLxCallBackPlaybackStopped), startsB);
    EXPECT_EQ(playbackA.Count(kLxCallBackPlaybackStarted), startsA);
    EXPECT_GE(startsA, 2);
    EXPECT_EQ(levels.Count(kLxCallBackInputLevel), seconds * 10);
    EXPECT_GT(compressed.load(), 0);
    EXPECT_GT(edits.load(), 0);
}
