#include "LxAudioResamplerWorker.h"

#include <chrono>
#include <system_error>
#include <thread>

namespace {

// Watches until done() or the time is up; true when done. It yields the
// processor between looks, so that a thread that shares it (the other side, on
// a machine short of cores) is not kept from running.
template <typename Done>
bool WatchFor(int microseconds, Done done) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
    for (;;) {
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= until) return done();
        std::this_thread::yield();
    }
}

}  // namespace

LxAudioResamplerWorker::LxAudioResamplerWorker() = default;

LxAudioResamplerWorker::~LxAudioResamplerWorker() {
    {
        LxLock lock(mutex);
        stopping = true;
    }
    taskOffered.notify_one();
    Join();
}

bool LxAudioResamplerWorker::Offer(Task newTask, void* newContext) {
    if (failed) return false;
    if (!IsStarted()) {
        try {
            Start();
        } catch (const std::system_error&) {
            failed = true;  // no threads to be had: the caller works alone from now on
            return false;
        }
    }
    task = newTask;
    context = newContext;
    state.store(kOffered, std::memory_order_release);
    bool wake = false;
    {
        LxLock lock(mutex);
        wake = workerAsleep;
    }
    if (wake) taskOffered.notify_one();
    return true;
}

void LxAudioResamplerWorker::Finish() {
    int expected = kOffered;
    if (state.compare_exchange_strong(expected, kWithdrawn, std::memory_order_acq_rel)) return;
    auto done = [&] { return state.load(std::memory_order_acquire) == kDone; };
    if (WatchFor(kLingerMicroseconds, done)) return;
    LxLock lock(mutex);
    callerAsleep = true;
    while (!done()) taskDone.Wait(lock);
    callerAsleep = false;
}

void LxAudioResamplerWorker::Run() {
    auto offered = [&] { return state.load(std::memory_order_acquire) == kOffered; };
    for (;;) {
        if (!WatchFor(kLingerMicroseconds, offered)) {
            LxLock lock(mutex);
            while (!stopping && !offered()) {
                workerAsleep = true;
                taskOffered.Wait(lock);
                workerAsleep = false;
            }
            if (stopping) return;
        }
        int expected = kOffered;
        if (!state.compare_exchange_strong(expected, kRunning, std::memory_order_acq_rel)) continue;  // withdrawn
        task(context);
        state.store(kDone, std::memory_order_release);
        bool wake = false;
        {
            LxLock lock(mutex);
            wake = callerAsleep;
        }
        if (wake) taskDone.notify_one();
    }
}
