#pragma once
// A thread with a message queue. Messages posted from any thread are handled
// one at a time, in order, by HandleMessage on this thread. Message code 14
// ends the thread; a derived class handles its own codes and hands the rest to
// the base.
#include <cstdint>
#include <deque>
#include <thread>
#include "LxCondition.h"
#include "LxMutex.h"
#include "LxThreadPriorityEnum.h"

struct LxThreadMessage {
    int code = 0;
    intptr_t param1 = 0;
    intptr_t param2 = 0;
};

class LXPUBLIC_API LxThread {
public:
    static constexpr int kMessageQuit = 14;

    explicit LxThread(int priority = kLxThreadPriorityNormal);
    // Quits and joins the thread if it is still running.
    virtual ~LxThread();
    LxThread(const LxThread&) = delete;
    LxThread& operator=(const LxThread&) = delete;

    bool Start();
    // Queues a message; false when the thread is not running.
    bool Post(int code, intptr_t param1 = 0, intptr_t param2 = 0);
    // Posts the quit message; messages queued before it are still handled.
    void Quit() { Post(kMessageQuit); }
    // Waits for the thread to end (it must have been told to quit).
    void Join();
    bool IsRunning() const;
    int GetPriority() const { return priority; }

protected:
    // Called on the thread for every message except quit. Exceptions thrown
    // here go to the platform's exception handler; the thread carries on.
    virtual void HandleMessage(const LxThreadMessage& message);

private:
    void Loop();

    int priority;
    std::thread thread;
    mutable LxMutex mutex;
    LxCondition condition;
    std::deque<LxThreadMessage> queue;
    bool running = false;
};
