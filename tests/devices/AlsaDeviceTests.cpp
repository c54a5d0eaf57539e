// The real ALSA path without a sound card: an ALSA configuration whose default
// PCM is the file plugin over the null PCM writes everything played to a file
// and records from an input file. Also a configuration without any usable PCM.
#include <gtest/gtest.h>

#if defined(LX_HAVE_ALSA)
#include <alsa/asoundlib.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <list>
#include "DeviceTestSupport.h"
#include "LxAudioCaptureConsumer.h"
#include "LxAudioController.h"
#include "PcmHelpers.h"
#include "TempDir.h"

namespace {

std::vector<unsigned char> ReadFile(const LxFile& file) {
    std::ifstream in(file.GetPath().str(), std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const LxFile& file, const std::vector<unsigned char>& bytes) {
    std::ofstream out(file.GetPath().str(), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

int Store(LxAudioController& controller, const std::vector<int16_t>& pcm, int channels) {
    auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
    clip->AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), static_cast<int>(pcm.size() * 2),
                        channels, 44100, 16, 1.0f);
    return clip->FinishAppendingPCMData(channels, 44100, 16, 1.0f);
}

// Selects the ALSA driver over a configuration of the test's own (which
// replaces the system's while the test runs).
class AlsaDevices : public ::testing::Test {
protected:
    void SetUp() override {
        SetEnvironment("LXAUDIO_WAVE_DRIVER", "alsa");
        SetEnvironment("LXAUDIO_ALSA_PLAYBACK_PCM", nullptr);
        SetEnvironment("LXAUDIO_ALSA_CAPTURE_PCM", nullptr);
    }
    void TearDown() override {
        SetEnvironment("LXAUDIO_WAVE_DRIVER", nullptr);
        SetEnvironment("ALSA_CONFIG_PATH", nullptr);
        snd_config_update_free_global();
    }
    void UseConfiguration(const std::string& text) {
        LxFile config = dir.Child("asound.conf");
        std::ofstream(config.GetPath().str()) << text << "\n";
        SetEnvironment("ALSA_CONFIG_PATH", config.GetPath().c_str());
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
    std::vector<int16_t> stereo = MakeRamp(2 * 44100 + 13230, 2, 31);
    std::vector<int16_t> mono = MakeRamp(44100 + 990, 1, 32);
    int stereoID = Store(controller, stereo, 2);
    int monoID = Store(controller, mono, 1);
    std::vector<int16_t> doubled;
    for (int16_t s : mono) {
        doubled.push_back(s);
        doubled.push_back(s);
    }
    for (auto [clipID, expectedSamples] : {std::pair{stereoID, &stereo}, std::pair{monoID, &doubled}}) {
        SCOPED_TRACE(clipID);
        Out().Delete();
        CallbackRecorder recorder;
        controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
        ASSERT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 1);
        ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
        ASSERT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
        std::vector<unsigned char> expected = AsBytes(*expectedSamples);
        std::vector<unsigned char> written = ReadFile(Out());
        ASSERT_GE(written.size(), expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), written.begin())) << "played audio differs";
        size_t filler = written.size() - expected.size();
        EXPECT_EQ(filler % 17640, 0u) << filler;
        EXPECT_GE(filler, 17640u);
        EXPECT_LE(filler, 4u * 17640u);
        EXPECT_TRUE(std::all_of(written.begin() + static_cast<std::ptrdiff_t>(expected.size()), written.end(),
                                [](unsigned char b) { return b == 1; }));
    }
}

namespace {

// Counts level reports and pauses the capture once `keep` buffers have been
// recorded: the null PCM under the file plugin is not paced, so the input runs
// far ahead of real time and would otherwise fill the store with silence.
struct PauseAfter {
    LxAudioController* controller;
    int keep;
    std::atomic<int> levels{0};
    static void Callback(LxCallBack& callBack, void* context) {
        auto* self = static_cast<PauseAfter*>(context);
        if (callBack.GetKind() != kLxCallBackInputLevel) return;
        if (++self->levels == self->keep + 1) self->controller->PauseCapture();
    }
};

}  // namespace

TEST_F(AlsaDevices, RecordingReadsTheInputFile) {
    UseFilePlugin();
    // 2.3 s of narration and 1234 frames: 23 whole buffers and part of a 24th.
    std::vector<unsigned char> narration = AsBytes(MakeRamp(23 * 4410 + 1234, 1, 33));
    WriteFile(In(), narration);
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
    int clipID = Store(controller, MakeRamp(44100, 2, 34), 2);
    CallbackRecorder recorder;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 0);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackPosition), 0);
    EXPECT_TRUE(controller.IsPlayingBack(clipID));
    controller.StopPlayBack(clipID);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 0);

    class Idle : public LxAudioCaptureConsumerBase {
    protected:
        void Run() override {}
    } consumer;
    EXPECT_FALSE(controller.StartCapture(0, 0.5f, true, &CallbackRecorder::Record, &recorder, &consumer));
    EXPECT_FALSE(consumer.IsStarted());
    EXPECT_EQ(controller.StopCapture(), -1);
    EXPECT_FALSE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
    controller.SetCaptureVolume(0.3f);
    EXPECT_EQ(controller.StopCapture(), -1);
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids, std::list<int>{clipID});
}
#else
TEST(AlsaDevices, NeedAlsa) { GTEST_SKIP() << "ALSA is Linux only; other platforms play through their own driver"; }
#endif
