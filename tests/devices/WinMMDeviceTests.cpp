// The WinMM driver on the platform's real wave devices: playback and capture
// run the whole device state machine (open, prime, start, the writer and reader
// threads, stop, close) through waveOut*/waveIn*. Under Wine the devices are
// Wine's ALSA ones; make windows-test points them at ALSA's file plugin over the
// null PCM, which runs faster than real time, so nothing here depends on pacing
// or on the exact samples a card hands back.
#include <gtest/gtest.h>

#if defined(_WIN32)
#include <list>
#include "AssertRecorder.h"
#include "DeviceTestSupport.h"
#include "LxAudioController.h"
#include "LxAudioDeviceMap.h"
#include "LxPublic/wave/LxWaveDriver.h"
#include "PcmHelpers.h"

namespace {

// Whether the system has a device of that direction that opens in the format
// the engine uses (a machine, or a Wine prefix, without sound has none).
bool CanOpen(bool input) {
    LxWaveDriver* driver = LxWaveDriver::Find("winmm");
    if (driver == nullptr) return false;
    LxWaveFormat format;
    format.channels = input ? 1 : 2;
    LxWaveEvent event;
    std::unique_ptr<LxWaveDevice> device;
    int result = input ? driver->OpenInput(0, format, event, device) : driver->OpenOutput(format, event, device);
    if (result != kLxWaveOk || device == nullptr) return false;
    return device->Close() == kLxWaveOk;
}

class WinMMDevices : public ::testing::Test {
protected:
    void SetUp() override { TestEnvironment::Set("LXAUDIO_WAVE_DRIVER", "winmm"); }
    void TearDown() override { TestEnvironment::Unset("LXAUDIO_WAVE_DRIVER"); }
};

}  // namespace

TEST_F(WinMMDevices, PlaybackStartsReportsEveryFrameAndStopsOnce) {
    if (!CanOpen(false)) GTEST_SKIP() << "no wave output device";
    AssertRecorder asserts;
    LxAudioController controller;
    // 1.5 s of stereo: more buffers than the four that prime the device.
    const int frames = 15 * 4410;
    int clipID = StoreClip(controller, MakeRamp(frames, 2, 61), 2);
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        CallbackRecorder recorder;
        controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
        ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
        ASSERT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
        std::vector<CallbackEvent> events = recorder.Events();
        EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 1);
        EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);
        EXPECT_EQ(events.back().kind, kLxCallBackPlaybackStopped);
        // Positions never go back and end on the clip's last frame.
        float last = -1.0f;
        for (const CallbackEvent& event : events) {
            if (event.kind != kLxCallBackPlaybackPosition) continue;
            EXPECT_GE(event.value, last);
            last = event.value;
        }
        EXPECT_FLOAT_EQ(last, static_cast<float>(frames));
    }

    // Stopped by the host while (or after) it plays: one stop report all the same.
    CallbackRecorder recorder;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
    ASSERT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 1);
    controller.StopPlayBack(clipID);
    ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
    ASSERT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);
    EXPECT_EQ(asserts.Count(), 0u);
}

TEST_F(WinMMDevices, CaptureStoresWholeBuffersUntilPausedAndClosesTheDevice) {
    if (!CanOpen(true)) GTEST_SKIP() << "no wave input device";
    AssertRecorder asserts;
    LxAudioController controller;
    const int buffers = 12;
    PauseAfter pause{&controller, buffers};
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &PauseAfter::Callback, &pause));
    ASSERT_TRUE(WaitUntil([&] { return pause.levels.load() > buffers; }));
    int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);
    EXPECT_FALSE(pause.onHostThread.load()) << "levels come from the reader thread";
    // Mono 16-bit at 44100: 8820 bytes in each 100 ms buffer, none after the pause.
    auto clip = controller.GetClip(clipID);
    EXPECT_EQ(ReadAll(*clip, 1).size() * 2, static_cast<size_t>(buffers) * 8820);
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids, std::list<int>{clipID});
    EXPECT_EQ(asserts.Count(), 0u);

    // The device was closed: it opens again, and a device that does not exist does not.
    EXPECT_TRUE(CanOpen(true));
    EXPECT_FALSE(controller.StartCapture(LxMakeCaptureDeviceID(99, 0), -1.0f, true, nullptr, nullptr));
    EXPECT_EQ(controller.StopCapture(), -1);
}
#else
TEST(WinMMDevices, NeedWindows) { GTEST_SKIP() << "WinMM is Windows only"; }
#endif
