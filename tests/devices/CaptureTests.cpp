// Capture on the simulated driver: what the recorded clip holds, pausing, the
// level callback, volumes and the mixer, a host's own consumer, buffers handed
// back out of order, failures, and the close retries of the capture device.
#include <gtest/gtest.h>

#include "AssertRecorder.h"
#include "DeviceTestSupport.h"
#include "LxAudioCaptureConsumer.h"
#include "LxAudioController.h"
#include "PcmHelpers.h"
#include "WLxAudioCaptureDeviceMMIO.h"

namespace {

constexpr int kBufferBytes = 8820;
const char* const kWaveSource = "source/components/audiocore/WLxAudioMMIO";

std::vector<unsigned char> Concat(std::initializer_list<const std::vector<unsigned char>*> parts) {
    std::vector<unsigned char> all;
    for (const auto* part : parts) all.insert(all.end(), part->begin(), part->end());
    return all;
}

// A host's consumer: keeps the size and volume of every item and publishes a
// clip ID of its own.
class CountingConsumer : public LxAudioCaptureConsumerBase {
public:
    ~CountingConsumer() override { Join(); }
    std::vector<int> sizes;
    std::vector<float> volumes;
    bool sawCallback = false;

protected:
    void Run() override {
        sawCallback = callback != nullptr;
        LxAudioCaptureData* item = nullptr;
        pickNext(item);
        while (!item->IsTerminal()) {
            sizes.push_back(item->byteCount);
            volumes.push_back(item->volume);
            delete item;
            pickNext(item);
        }
        volumes.push_back(item->volume);
        delete item;
        capturedClipID = 4242;
    }
};

std::vector<unsigned char> Samples(std::initializer_list<std::pair<int, int16_t>> set, int16_t fill, int count) {
    std::vector<int16_t> samples(static_cast<size_t>(count), fill);
    for (auto [index, value] : set) samples[static_cast<size_t>(index)] = value;
    return AsBytes(samples);
}

}  // namespace

using Capture = SimulatedDeviceTest;

TEST_F(Capture, StopReturnsAClipHoldingWhatWasRecorded) {
    LxAudioController controller;
    CallbackRecorder recorder;
    // 2.5 s and 77 frames: a full page, a pending part and a tail to round.
    std::vector<unsigned char> input = MonoBytes(110250 + 77, 11);
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder));
    Feed(input);
    int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);

    std::vector<unsigned char> recorded = ClipBytes(controller, clipID);
    ASSERT_EQ(recorded.size(), input.size() / 180 * 180);
    EXPECT_TRUE(std::equal(recorded.begin(), recorded.end(), input.begin()));
    // One level report per recorded buffer, on the reader thread.
    const int buffers = static_cast<int>((input.size() + kBufferBytes - 1) / kBufferBytes);
    EXPECT_EQ(recorder.Count(kLxCallBackInputLevel), buffers);
    EXPECT_NE(recorder.Events()[0].thread, std::this_thread::get_id());
    EXPECT_EQ(controller.StopCapture(), -1);
}

TEST_F(Capture, PausedAudioIsAbsentAndAnEmptyCaptureStoresNothing) {
    LxAudioController controller;
    CallbackRecorder recorder;
    std::vector<unsigned char> a = MonoBytes(2 * 4410, 1), b = MonoBytes(3 * 4410, 2), c = MonoBytes(4410, 3),
                               d = MonoBytes(2 * 4410 + 900, 4);
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, false, &CallbackRecorder::Record, &recorder));
    Feed(a);
    controller.ResumeCapture();
    Feed(b);
    controller.PauseCapture();
    Feed(c);
    controller.PreserveCapturedData(true);
    Feed(d);
    int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);
    std::vector<unsigned char> expected = Concat({&b, &d});
    expected.resize(expected.size() / 180 * 180);
    EXPECT_EQ(ClipBytes(controller, clipID), expected);
    // The input kept running while paused: every buffer reported its level.
    EXPECT_EQ(recorder.Count(kLxCallBackInputLevel), 2 + 3 + 1 + 3);

    // Less than 180 bytes recorded: nothing is pushed at the end either.
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
    Feed(std::vector<unsigned char>(100, 7));
    EXPECT_EQ(controller.StopCapture(), -1);
    // A cancelled capture still stores its clip; the caller just does not learn the ID.
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
    Feed(b);
    controller.CancelCapture();
    EXPECT_EQ(ClipBytes(controller, clipID + 1), b);
}

TEST_F(Capture, LevelReportsTheLoudestTenthSampleScaledByTheVolume) {
    LxAudioController controller;
    CallbackRecorder recorder;
    CountingConsumer consumer;
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, &CallbackRecorder::Record, &recorder, &consumer));
    // Sample 5 is not looked at; sample 10 is the loudest that is.
    std::vector<unsigned char> loud = Samples({{5, 30000}, {10, 16384}}, -20000, 4410);
    std::vector<unsigned char> quiet = Samples({}, -100, 4410);
    Feed(Concat({&loud, &quiet}));
    controller.SetCaptureVolume(2.0f);
    Feed(loud);
    // A buffer of one byte reports no level but is still queued.
    Feed(std::vector<unsigned char>(1, 9));
    controller.SetCaptureVolume(-3.0f);
    Feed(quiet);
    EXPECT_EQ(controller.StopCapture(), 4242);

    std::vector<CallbackEvent> levels;
    for (const CallbackEvent& e : recorder.Events()) {
        if (e.kind == kLxCallBackInputLevel) levels.push_back(e);
    }
    ASSERT_EQ(levels.size(), 4u);
    EXPECT_FLOAT_EQ(levels[0].value, 0.5f);
    EXPECT_FLOAT_EQ(levels[1].value, -100.0f / 32768.0f);
    EXPECT_FLOAT_EQ(levels[2].value, 1.0f);
    EXPECT_FLOAT_EQ(levels[3].value, -400.0f / 32768.0f);
    // Every item carries the volume asked for when it was made (a negative one counts as 4).
    EXPECT_EQ(consumer.sizes, (std::vector<int>{kBufferBytes, kBufferBytes, kBufferBytes, 1, kBufferBytes}));
    EXPECT_EQ(consumer.volumes, (std::vector<float>{1.0f, 1.0f, 2.0f, 2.0f, 4.0f, 4.0f}));
    EXPECT_TRUE(consumer.sawCallback);
}

TEST_F(Capture, BuffersHandedBackTogetherKeepTheirOrder) {
    Sim().SetInputCompletionBatch(3);
    LxAudioController controller;
    // Every buffer different, so that any reordering shows.
    std::vector<unsigned char> input = MonoBytes(23 * 4410, 23);
    ASSERT_TRUE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr));
    Feed(input);
    int clipID = controller.StopCapture();
    ASSERT_NE(clipID, -1);
    EXPECT_TRUE(ClipBytes(controller, clipID) == input);
}

TEST_F(Capture, VolumesAndTheMixer) {
    LxSharedDeque<LxAudioCaptureData*> deque;
    {
        WLxAudioCaptureDeviceMMIO device(deque);
        // Device 0, source line 1, volume 0.5.
        ASSERT_TRUE(device.Start(0x00000001, 0.5f, true, nullptr, nullptr));
        EXPECT_EQ(Sim().GetSelectedLine(), 1);
        EXPECT_FLOAT_EQ(Sim().GetRecordingVolume(), 0.5f);
        EXPECT_TRUE(device.SetVolume(-0.5f));
        EXPECT_FLOAT_EQ(device.GetVolume(), 4.0f);
        EXPECT_FLOAT_EQ(Sim().GetRecordingVolume(), 1.0f);
        EXPECT_EQ(Sim().GetRecordingVolumeWrites(), 2);

        // A mixer that cannot be opened: the volume is asked for but not applied.
        Sim().FailCall(LxWaveCall::OpenMixer, kLxWaveError, -1);
        EXPECT_FALSE(device.SetVolume(0.25f));
        EXPECT_FLOAT_EQ(device.GetVolume(), 0.25f);
        EXPECT_FLOAT_EQ(device.GetAppliedVolume(), 1.0f);
        Sim().FailCall(LxWaveCall::OpenMixer, 0, 0);
        EXPECT_TRUE(device.Stop());
    }
    EXPECT_EQ(deque.Size(), 0u);
}

TEST_F(Capture, ADeviceThatDoesNotStartLeavesNothingRunning) {
    LxAudioController controller;
    // No such input device.
    CountingConsumer consumer;
    EXPECT_FALSE(controller.StartCapture(3 << 16, -1.0f, true, nullptr, nullptr, &consumer));
    EXPECT_FALSE(consumer.IsInitialized());
    // The device object stays held until the host stops (a new start would
    // overwrite it without deleting it).
    EXPECT_EQ(controller.StopCapture(), -1);

    // Opened, but recording does not start.
    Sim().FailCall(LxWaveCall::Start, kLxWaveError);
    EXPECT_FALSE(controller.StartCapture(0, -1.0f, true, nullptr, nullptr, &consumer));
    EXPECT_FALSE(consumer.IsStarted());
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 1);
    EXPECT_EQ(controller.StopCapture(), -1);
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 0);
}

TEST_F(Capture, ClosingRetriesWhileBuffersAreQueuedAndReportsWhatItCannotClose) {
    struct Case {
        const char* what;
        LxWaveCall call;
        int result, times;
        int stopResult;  // 1 true, -1 not looked at
        int reportLine;  // 0: no report
    };
    const Case cases[] = {
        {"buffers still queued: closing resets and retries", LxWaveCall::Close, kLxWaveStillPlaying, 2, 1, 0},
        {"the reset between two attempts fails", LxWaveCall::Reset, kLxWaveInvalidHandle, 1, -1, 557},
        {"closing fails outright", LxWaveCall::Close, kLxWaveError, 1, -1, 560},
    };
    LxSharedDeque<LxAudioCaptureData*> deque;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        WLxAudioCaptureDeviceMMIO device(deque);
        ASSERT_TRUE(device.Start(0, -1.0f, true, nullptr, nullptr));
        Sim().FailCall(c.call, c.result, c.times);
        AssertRecorder recorder;
        const bool stopped = device.Stop();
        if (c.stopResult >= 0) {
            EXPECT_EQ(stopped, c.stopResult == 1);
        }
        if (c.reportLine) {
            ExpectSingleReport(recorder, "", kWaveSource, c.reportLine);
        } else {
            EXPECT_EQ(recorder.Count(), 0u);
        }
        EXPECT_FALSE(device.IsOpen());
    }
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 0);
}

TEST_F(Capture, TheStandardConsumerNeedsInitializing) {
    AssertRecorder recorder;
    LxAudioCaptureConsumer consumer;
    consumer.Start();
    consumer.Join();
    ExpectSingleReport(recorder, "Initialize should be called before proceeding",
                       "source/components/audiocore/LxAudioCaptureConsumer", 44);
    EXPECT_EQ(consumer.GetCapturedClipID(), -1);
}
