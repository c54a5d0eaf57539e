#pragma once
// Shared pieces of the device tests: a fixture that selects the simulated wave
// driver and resets it, a thread-safe recorder of host callbacks, and waiting
// with a generous guard (never a timing assertion).
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>
#include "LxPublic/LxCallBack.h"
#include "LxPublic/wave/LxSimulatedWaveDriver.h"
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
        static_cast<CallbackRecorder*>(context)->Add(callBack);
    }

    void Add(const LxCallBack& callBack) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back({callBack.GetKind(), callBack.GetValue(), std::this_thread::get_id()});
        changed.notify_all();
    }

    std::vector<CallbackEvent> Events() {
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }

    int Count(int kind) {
        std::lock_guard<std::mutex> lock(mutex);
        int n = 0;
        for (const CallbackEvent& e : events) n += e.kind == kind ? 1 : 0;
        return n;
    }

    // Waits until at least count callbacks of that kind arrived.
    bool WaitFor(int kind, int count = 1) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kGuardMilliseconds), [&] {
            int n = 0;
            for (const CallbackEvent& e : events) n += e.kind == kind ? 1 : 0;
            return n >= count;
        });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<CallbackEvent> events;
};

// Sets (or, with null, removes) an environment variable.
inline void SetEnvironment(const char* name, const char* value) {
#if defined(_WIN32)
    _putenv_s(name, value != nullptr ? value : "");
#else
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
#endif
}

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
