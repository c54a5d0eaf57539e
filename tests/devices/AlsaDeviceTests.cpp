// The real ALSA path without a sound card: an ALSA configuration whose default
// PCM is the file plugin over the null PCM writes everything played to a file
// and records from an input file. Also a configuration without any usable PCM.
#include <gtest/gtest.h>

#if defined(LX_HAVE_ALSA)
#include <alsa/asoundlib.h>

#include <fstream>
#include "DeviceTestSupport.h"
#include "LxAudioCaptureConsumer.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

// Selects the ALSA driver over a configuration of the test's own (which
// replaces the system's while the test runs).
class AlsaDevices : public ::testing::Test {
protected:
    void SetUp() override {
        TestEnvironment::Set("LXAUDIO_WAVE_DRIVER", "alsa");
        TestEnvironment::Unset("LXAUDIO_ALSA_PLAYBACK_PCM");
        TestEnvironment::Unset("LXAUDIO_ALSA_CAPTURE_PCM");
    }
    void TearDown() override {
        TestEnvironment::Unset("LXAUDIO_WAVE_DRIVER");
        TestEnvironment::Unset("ALSA_CONFIG_PATH");
        snd_config_update_free_global();
    }
    void UseConfiguration(const std::string& text) {
        LxFile config = dir.Child("asound.conf");
        std::ofstream(config.GetPath().str()) << text << "\n";
        TestEnvironment::Set("ALSA_CONFIG_PATH", config.GetPath().c_str());
        snd_config_update_free_global();
    }
    // Default PCM: the file plugin over null, playing into out.raw, recording from in.raw.
    void UseFilePlugin() {
        UseConfiguration("pcm.!default { type file slave.pcm { type null } file \"" + Out().GetPath().str() +
                         "\" infile \"" + In().GetPath().str() + "\" format \"raw\" }");
    }
    LxFile Out() const { return dir.Child("out.raw"); }
    LxFile In() const { return dir.Child("in.raw"); }

    TempDir dir;
};

}  // namespace

TEST_F(AlsaDevices, PlayingWritesTheClipsPcmThenTheFiller) {
    UseFilePlugin();
    LxAudioController controller;
    const std::vector<int16_t> mono = MakeRamp(2 * 44100 + 990, 1, 32);
    const int clipID = StoreClip(controller, mono, 1);
    CallbackRecorder recorder;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
    ASSERT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 1);
    ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
    ASSERT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
    ExpectAudioThenFiller(FileBytes(Out()), BothSides(mono));
}

TEST_F(AlsaDevices, RecordingReadsTheInputFile) {
    UseFilePlugin();
    // 2.3 s of narration and 1234 frames: 23 whole buffers and part of a 24th.
    std::vector<unsigned char> narration = AsBytes(MakeRamp(23 * 4410 + 1234, 1, 33));
    WriteFileBytes(In(), narration);
    const int buffers = 24;
    LxAudioController controller;
    PauseAfter pause{&controller, buffers};
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &PauseAfter::Callback, &pause));
    ASSERT_TRUE(WaitUntil([&] { return pause.levels.load() > buffers; }));
    int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);
    auto clip = controller.GetClip(clipID);
    std::vector<unsigned char> recorded = AsBytes(ReadAll(*clip, 1));
    // Whole 100 ms buffers: the narration, then whatever the null PCM gives
    // after the input file's end.
    ASSERT_EQ(recorded.size(), static_cast<size_t>(buffers) * 8820);
    EXPECT_TRUE(std::equal(narration.begin(), narration.end(), recorded.begin())) << "recorded audio differs";
}

TEST_F(AlsaDevices, WithoutAUsablePcmNothingStartsAndNothingBreaks) {
    // A configuration that defines no PCM at all: the default cannot be opened.
    UseConfiguration("# no devices");
    LxAudioController controller;
    int clipID = StoreClip(controller, MakeRamp(44100, 2, 34), 2);
    CallbackRecorder recorder;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 0);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackPosition), 0);
    EXPECT_TRUE(controller.IsPlayingBack(clipID));
    controller.StopPlayBack(clipID);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);

    class Idle : public LxAudioCaptureConsumerBase {
    protected:
        void Run() override {}
    } consumer;
    EXPECT_FALSE(controller.StartCapture(0, 0.5f, true, &CallbackRecorder::Record, &recorder, &consumer));
    EXPECT_FALSE(consumer.IsStarted());
    EXPECT_EQ(controller.StopCapture(), -1);
}
#else
TEST(AlsaDevices, NeedAlsa) { GTEST_SKIP() << "ALSA is Linux only; other platforms play through their own driver"; }
#endif
