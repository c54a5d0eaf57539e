#pragma once
// A thread that runs one body (Run) from Start to its end. Exceptions never
// leave the thread: they go to the platform's exception handler.
#include <atomic>
#include <thread>
#include "LxPublicExport.h"
#include "LxThreadPriorityEnum.h"

class LXPUBLIC_API LxWorkerThread {
public:
    explicit LxWorkerThread(int priority = kLxThreadPriorityNormal);
    // Joins the thread if it was started and not joined; a derived class must
    // stop its body before its own members go away.
    virtual ~LxWorkerThread();
    LxWorkerThread(const LxWorkerThread&) = delete;
    LxWorkerThread& operator=(const LxWorkerThread&) = delete;

    bool Start();
    void Join();
    bool IsStarted() const { return thread.joinable(); }
    bool IsFinished() const { return finished.load(); }
    int GetPriority() const { return priority; }

protected:
    virtual void Run() = 0;
    // Name given to the exception handler.
    virtual const char* GetThreadName() const { return "worker"; }

private:
    int priority;
    std::thread thread;
    std::atomic<bool> finished{false};
};
