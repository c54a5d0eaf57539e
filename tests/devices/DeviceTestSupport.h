#pragma once
// Shared pieces of the device tests: a fixture that selects the simulated wave
// driver and resets it, a thread-safe recorder of host callbacks, waiting with a
// generous guard (never a timing assertion), and checks of what reached a
// device or the store.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>
#include "LxAudioController.h"
#include "LxAudioFile.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/wave/LxSimulatedWaveDriver.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "TestEnvironment.h"

// Long enough for a loaded machine (or ThreadSanitizer); only a hang reaches it.
constexpr int kGuardMilliseconds = 60000;

struct CallbackEvent {
    int kind = 0;
    float value = 0.0f;
    std::thread::id thread;
};

// Records every callback with the thread it came on. Pass Record as the
// callback and the recorder as its context.
class CallbackRecorder {
public:
    static void Record(LxCallBack& callBack, void* context) {
        auto* self = static_cast<CallbackRecorder*>(context);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->events.push_back({callBack.GetKind(), callBack.GetValue(), std::this_thread::get_id()});
        self->changed.notify_all();
    }
    std::vector<CallbackEvent> Events() {
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }
    int Count(int kind) {
        std::lock_guard<std::mutex> lock(mutex);
        return CountLocked(kind);
    }
    // Waits until at least count callbacks of that kind arrived.
    bool WaitFor(int kind, int count = 1) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kGuardMilliseconds),
                                [&] { return CountLocked(kind) >= count; });
    }

private:
    int CountLocked(int kind) const {
        return static_cast<int>(std::count_if(events.begin(), events.end(), [&](const CallbackEvent& e) { return e.kind == kind; }));
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<CallbackEvent> events;
};

// Pauses the capture once `keep` buffers have been recorded: an input that is
// not paced (ALSA's null PCM, Wine's devices over it) runs far ahead of real
// time and would otherwise fill the store with silence.
struct PauseAfter {
    LxAudioController* controller;
    int keep;
    std::atomic<int> levels{0};
    std::atomic<bool> onHostThread{false};
    std::thread::id host = std::this_thread::get_id();
    static void Callback(LxCallBack& callBack, void* context) {
        auto* self = static_cast<PauseAfter*>(context);
        if (callBack.GetKind() != kLxCallBackInputLevel) return;
        if (std::this_thread::get_id() == self->host) self->onHostThread = true;
        if (++self->levels == self->keep + 1) self->controller->PauseCapture();
    }
};

// Selects the simulated driver for the test and leaves it reset.
class SimulatedDeviceTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestEnvironment::Set("LXAUDIO_WAVE_DRIVER", "simulated");
        Sim().ResetSimulation();
    }
    void TearDown() override {
        EXPECT_EQ(Sim().GetOpenDeviceCount(), 0) << "a device was left open";
        Sim().ResetSimulation();
        TestEnvironment::Unset("LXAUDIO_WAVE_DRIVER");
    }
    static LxSimulatedWaveDriver& Sim() { return LxSimulatedWaveDriver::Instance(); }
};

inline std::vector<unsigned char> AsBytes(const std::vector<int16_t>& samples) {
    std::vector<unsigned char> bytes(samples.size() * 2);
    if (!samples.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

// A mono ramp as the bytes a microphone delivers.
inline std::vector<unsigned char> MonoBytes(int frames, int seed) { return AsBytes(MakeRamp(frames, 1, seed)); }

// Everything a (mono) clip of the controller plays, as bytes.
inline std::vector<unsigned char> ClipBytes(LxAudioController& controller, int clipID) {
    auto clip = controller.GetClip(clipID);
    return AsBytes(ReadAll(*clip, 1));
}

// Feeds bytes to the simulated microphone and waits until the capture took them.
inline void Feed(const std::vector<unsigned char>& bytes) {
    LxSimulatedWaveDriver::Instance().FeedInput(bytes.data(), bytes.size());
    ASSERT_TRUE(LxSimulatedWaveDriver::Instance().WaitUntilInputConsumed(kGuardMilliseconds));
}

// What a playback device got: the audio, then only whole 100 ms buffers of
// filler (0x0101 samples), at least one and at most four.
inline void ExpectAudioThenFiller(const std::vector<unsigned char>& played, const std::vector<int16_t>& audio) {
    const std::vector<unsigned char> expected = AsBytes(audio);
    ASSERT_GE(played.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), played.begin())) << "played audio differs";
    const size_t filler = played.size() - expected.size();
    EXPECT_EQ(filler % 17640, 0u) << filler;
    EXPECT_GE(filler / 17640, 1u);
    EXPECT_LE(filler / 17640, 4u);
    EXPECT_TRUE(std::all_of(played.begin() + static_cast<std::ptrdiff_t>(expected.size()), played.end(),
                            [](unsigned char b) { return b == 1; }));
}

// Walks a recorded (mono) clip page by page against the input fed in:
// input(at, n) gives the n input bytes from byte at. Raw pages must hold exactly
// those; pages the compressor already encoded count by their length. bytes is
// how far the walk got.
inline void ExpectPagesHoldInput(LxAudioController& controller, int clipID,
                                 const std::function<std::vector<unsigned char>(int64_t, int)>& input,
                                 int64_t& bytes, int64_t& rawPages) {
    LxAudioFile& file = *controller.GetAudioFile();
    std::vector<unsigned char> page(176400);
    bytes = rawPages = 0;
    const auto clip = controller.GetClipBase(clipID);
    for (const LxPageRange& range : clip->GetPageRanges()) {
        for (int id = range.startPage; id <= range.endPage; id += kLxPageRecordBytes) {
            LxPCMData record;
            ASSERT_TRUE(file.ReadPageHeader(id, record)) << id;
            ASSERT_EQ(record.channels, 1);
            const int lo = id == range.startPage ? range.startOffset : 0;
            const int hi = id == range.endPage ? range.endOffset : record.pcmBytes;
            if (record.codec == kLxPageCodecRaw) {
                int got = 0;
                file.ReadPageData(record, 1, page.data(), static_cast<int>(page.size()), got);
                ASSERT_GE(got, hi);
                const std::vector<unsigned char> expected = input(bytes, hi - lo);
                ASSERT_EQ(expected.size(), static_cast<size_t>(hi - lo)) << "more recorded than fed in";
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), page.begin() + lo)) << "page " << id;
                ++rawPages;
            }
            bytes += hi - lo;
        }
    }
}

// Polls a condition (for states that raise no callback), with the guard.
template <typename F>
bool WaitUntil(F condition) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kGuardMilliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
