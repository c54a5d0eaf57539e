#pragma once
// A second thread for a resampler's big calls. The caller offers it a task
// (Offer) that shares the call's work with the caller: both take parts of the
// work from a common counter until none is left (see LxAudioResamplerFilter).
// Then the caller calls Finish: a task the thread has not taken up by then is
// withdrawn (the caller has done all the parts itself), one it has taken up is
// waited for. A busy machine, where the thread may not run for a while, thus
// never holds a call up by more than what the thread is working on.
//
// The thread is started by the first Offer and lives until the worker goes, so
// that a stream of calls does not pay for a new thread each time. A call's
// part takes tens of microseconds, about what waking a sleeping thread costs:
// so after a task the thread watches for the next one for a short while
// (kLingerMicroseconds) before it sleeps, and the caller watches for the end of
// a task for as long before it sleeps, yielding the processor between looks (a
// thread that watches must not keep the other side from running on a machine
// short of cores). A stream of calls hands over without waking anyone, and an
// idle worker costs nothing.
//
// One caller at a time: Offer and Finish alternate, from the thread that owns
// the resampler. The task's writes are visible to the caller once Finish returns.
#include <atomic>
#include "LxPublic/LxCondition.h"
#include "LxPublic/LxMutex.h"
#include "LxPublic/LxWorkerThread.h"

class LxAudioResamplerWorker : public LxWorkerThread {
public:
    using Task = void (*)(void* context);
    static constexpr int kLingerMicroseconds = 50;

    LxAudioResamplerWorker();
    ~LxAudioResamplerWorker() override;

    // Offers task(context) to the worker's thread. False when no thread could
    // be started (the caller then works alone, and does not call Finish).
    bool Offer(Task task, void* context);
    // Withdraws the offered task if the thread has not taken it up, otherwise
    // waits until it has run. Afterwards the thread no longer uses the context.
    void Finish();

protected:
    void Run() override;
    const char* GetThreadName() const override { return "resampler"; }

private:
    enum State : int { kIdle, kOffered, kRunning, kDone, kWithdrawn };

    // Set by the caller while no task is offered or running; read by the
    // thread once it has taken the task up.
    Task task = nullptr;
    void* context = nullptr;
    std::atomic<int> state{kIdle};
    LxMutex mutex;
    LxCondition taskOffered;
    LxCondition taskDone;
    // Under mutex:
    bool stopping = false;
    bool workerAsleep = false;
    bool callerAsleep = false;
    bool failed = false;  // the thread could not be started (caller's side only)
};
