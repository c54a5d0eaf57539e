// Playback on the simulated driver: the callbacks a host sees (kinds, values,
// threads), what reaches the sound card, the playback map under start, stop and
// failure, and the end of audio through the controller's stop handler.
#include <gtest/gtest.h>

#include <atomic>
#include "DeviceTestSupport.h"
#include "LxAudioController.h"
#include "LxPublic/LxOSVersion.h"
#include "PcmHelpers.h"

namespace {

constexpr int kBufferFrames = 4410;

// Each playback's context in the stop-order test.
struct Keyed {
    int key;
    std::vector<int>* stoppedKeys;
    static void Callback(LxCallBack& callBack, void* context) {
        auto* self = static_cast<Keyed*>(context);
        if (callBack.GetKind() == kLxCallBackPlaybackStopped) self->stoppedKeys->push_back(self->key);
    }
};

}  // namespace

using Playback = SimulatedDeviceTest;

TEST_F(Playback, SevenBuffersGiveTheExactCallbackSequenceAndReachTheCard) {
    // Whole multiples of 180 bytes, so that storing the clip keeps every frame.
    const int frames = 6 * kBufferFrames + 990;
    std::vector<int16_t> pcm = MakeRamp(frames, 2, 3);
    CallbackRecorder recorder;
    const std::thread::id host = std::this_thread::get_id();
    {
        LxAudioController controller;
        int clipID = StoreClip(controller, pcm, 2);
        controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
        ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
        EXPECT_FALSE(controller.IsPlayingBack(clipID));
    }
    std::vector<CallbackEvent> events = recorder.Events();
    ASSERT_EQ(events.size(), 4u + 1u + 3u + 5u + 1u);
    // Positions are the frames written, except on Windows 8.1 and older, where
    // they are the device's own position (whatever it has played by then): there
    // they only never go back and never pass what was written.
    const bool written = LxOSVersion::GetOSVersion() > kLxOSWindows81;
    auto expectPosition = [&](float value, float framesWritten, float previous) {
        if (written) {
            EXPECT_FLOAT_EQ(value, framesWritten);
        } else {
            EXPECT_LE(value, framesWritten);
            EXPECT_GE(value, previous);
        }
    };
    // Priming: four buffers on the host's thread, then "started".
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(events[i].kind, kLxCallBackPlaybackPosition);
        expectPosition(events[i].value, static_cast<float>((i + 1) * kBufferFrames), i ? events[i - 1].value : 0.0f);
        EXPECT_EQ(events[i].thread, host);
    }
    EXPECT_EQ(events[4].kind, kLxCallBackPlaybackStarted);
    EXPECT_EQ(events[4].thread, host);
    // The writer thread: the three remaining buffers, then five empty reads.
    const std::thread::id writer = events[5].thread;
    EXPECT_NE(writer, host);
    const float positions[] = {5 * kBufferFrames, 6 * kBufferFrames, frames, frames, frames, frames, frames, frames};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(events[5 + i].kind, kLxCallBackPlaybackPosition) << i;
        expectPosition(events[5 + i].value, positions[i], events[i ? 4 + i : 3].value);
        EXPECT_EQ(events[5 + i].thread, writer) << i;
    }
    // Stopped, on the controller's stop handler thread.
    EXPECT_EQ(events[13].kind, kLxCallBackPlaybackStopped);
    EXPECT_NE(events[13].thread, host);
    EXPECT_NE(events[13].thread, writer);

    std::vector<std::vector<unsigned char>> outputs = Sim().GetFinishedOutputs();
    ASSERT_EQ(outputs.size(), 1u);
    ExpectAudioThenFiller(outputs[0], pcm);
}

TEST_F(Playback, APortionPlaysExactlyItsFramesAndAnEmptyOneNeverStarts) {
    LxAudioController controller;
    std::vector<int16_t> mono = MakeRamp(3 * 44100 + 540, 1, 5);
    int clipID = StoreClip(controller, mono, 1);

    // Frames 44101 to 88200 of a mono clip: one second, doubled to stereo.
    CallbackRecorder byID;
    controller.StartPlayBackOnDefaultDevice(clipID, 44101, 88201, &CallbackRecorder::Record, &byID);
    ASSERT_TRUE(byID.WaitFor(kLxCallBackPlaybackStopped));
    std::vector<std::vector<unsigned char>> outputs = Sim().GetFinishedOutputs();
    ASSERT_EQ(outputs.size(), 1u);
    ExpectAudioThenFiller(outputs[0], BothSides({mono.begin() + 44100, mono.begin() + 88200}));

    // An empty portion: one kind 36 from the stop handler, no kind 32, and the entry is gone.
    ASSERT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
    CallbackRecorder recorder;
    controller.StartPlayBackOnDefaultDevice(clipID, 100, 100, &CallbackRecorder::Record, &recorder);
    ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackStopped));
    EXPECT_TRUE(WaitUntil([&] { return !controller.IsPlayingBack(clipID); }));
    ASSERT_EQ(recorder.Events().size(), 1u);
    EXPECT_NE(recorder.Events()[0].thread, std::this_thread::get_id());
}

TEST_F(Playback, OnePlaybackPerKeyAndStopAllGoesInAscendingOrder) {
    // Each 100 ms buffer takes 100 s: playbacks stay running until stopped.
    Sim().SetSpeed(0.001);
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(10 * kBufferFrames, 2, 2);
    int one = StoreClip(controller, pcm, 2);
    int two = StoreClip(controller, pcm, 2);
    int three = StoreClip(controller, pcm, 2);

    CallbackRecorder first, second;
    controller.StartPlayBackOnDefaultDevice(two, 1, -1, &CallbackRecorder::Record, &first);
    controller.StartPlayBackOnDefaultDevice(two, 1, -1, &CallbackRecorder::Record, &second);
    EXPECT_EQ(first.Count(kLxCallBackPlaybackStarted), 1);
    EXPECT_EQ(first.Count(kLxCallBackPlaybackPosition), 4);
    EXPECT_TRUE(second.Events().empty()) << "a second start of a playing clip must do nothing";

    // A caller's clip object plays under key 0.
    auto objectB = controller.GetClip(three);
    std::vector<int> stoppedKeys;
    Keyed k0{0, &stoppedKeys}, k1{one, &stoppedKeys}, k3{three, &stoppedKeys};
    controller.StartPlayBackOnDefaultDevice(three, 1, -1, &Keyed::Callback, &k3);
    controller.StartPlayBackOnDefaultDevice(one, 1, -1, &Keyed::Callback, &k1);
    controller.StartPlayBackOnDefaultDevice(*objectB, 1, -1, &Keyed::Callback, &k0);
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 4);

    controller.StopPlayBack(-1);
    EXPECT_EQ(stoppedKeys, (std::vector<int>{0, one, three}));
    EXPECT_EQ(first.Count(kLxCallBackPlaybackStopped), 1);
    for (int key : {0, one, two, three}) EXPECT_FALSE(controller.IsPlayingBack(key)) << key;
}

TEST_F(Playback, AFailedDeviceBlocksItsKeyUntilStopped) {
    LxAudioController controller;
    int clipID = StoreClip(controller, MakeRamp(8 * kBufferFrames, 2, 4), 2);

    // No output device: nothing but the final kind 36 when the host stops it.
    Sim().FailCall(LxWaveCall::OpenOutput, kLxWaveBadDeviceID);
    CallbackRecorder noDevice;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &noDevice);
    EXPECT_TRUE(noDevice.Events().empty());
    EXPECT_TRUE(controller.IsPlayingBack(clipID));
    controller.StopPlayBack(clipID);
    ASSERT_EQ(noDevice.Events().size(), 1u);
    EXPECT_EQ(noDevice.Events()[0].kind, kLxCallBackPlaybackStopped);
    EXPECT_FALSE(controller.IsPlayingBack(clipID));

    // Queueing the first buffer fails: the device is open but never starts.
    Sim().FailCall(LxWaveCall::Queue, kLxWaveError);
    CallbackRecorder failed;
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &failed);
    EXPECT_TRUE(failed.Events().empty());
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 1);
    controller.StopPlayBack(clipID);
    EXPECT_EQ(failed.Count(kLxCallBackPlaybackStopped), 1);
}

TEST_F(Playback, HostStopDuringTheFillerReadsReportsStoppedOnce) {
    // 50 ms per buffer: the host stops while the end is being drained.
    Sim().SetSpeed(2.0);
    CallbackRecorder recorder;
    int clipID = -1;
    {
        LxAudioController controller;
        clipID = StoreClip(controller, MakeRamp(2 * kBufferFrames, 2, 6), 2);
        controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, &CallbackRecorder::Record, &recorder);
        // Two buffers primed, then the first empty read.
        ASSERT_TRUE(recorder.WaitFor(kLxCallBackPlaybackPosition, 3));
        controller.StopPlayBack(clipID);
        EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);
        // The writer's own stop request reaches the stop handler afterwards; the
        // destructor lets the handler finish every queued message.
    }
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 1);
    EXPECT_LE(recorder.Count(kLxCallBackPlaybackPosition), 2 + 5);
}

TEST_F(Playback, DestroyingTheControllerDeletesRunningPlaybacksSilently) {
    Sim().SetSpeed(0.001);
    CallbackRecorder recorder;
    {
        LxAudioController controller;
        int a = StoreClip(controller, MakeRamp(6 * kBufferFrames, 2, 7), 2);
        int b = StoreClip(controller, MakeRamp(6 * kBufferFrames, 1, 8), 1);
        controller.StartPlayBackOnDefaultDevice(a, 1, -1, &CallbackRecorder::Record, &recorder);
        controller.StartPlayBackOnDefaultDevice(b, 1, -1, &CallbackRecorder::Record, &recorder);
        EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStarted), 2);
        EXPECT_EQ(Sim().GetOpenDeviceCount(), 2);
    }
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 0);
    EXPECT_EQ(recorder.Count(kLxCallBackPlaybackStopped), 0);
}

TEST_F(Playback, CallbacksWithoutAContextReportOnlyTheStop) {
    LxAudioController controller;
    int clipID = StoreClip(controller, MakeRamp(3 * kBufferFrames, 2, 9), 2);
    static std::atomic<int> started{0}, positions{0}, stopped{0};
    started = positions = stopped = 0;
    auto callback = [](LxCallBack& callBack, void*) {
        if (callBack.GetKind() == kLxCallBackPlaybackStarted) ++started;
        if (callBack.GetKind() == kLxCallBackPlaybackPosition) ++positions;
        if (callBack.GetKind() == kLxCallBackPlaybackStopped) ++stopped;
    };
    controller.StartPlayBackOnDefaultDevice(clipID, 1, -1, callback, nullptr);
    ASSERT_TRUE(WaitUntil([&] { return stopped.load() == 1; }));
    EXPECT_EQ(started.load(), 0);
    EXPECT_EQ(positions.load(), 0);
}
