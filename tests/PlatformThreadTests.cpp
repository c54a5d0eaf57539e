// Message threads and worker threads: order of messages, quitting, and
// exceptions that must never leave a thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxLCException.h"
#include "LxPublic/LxThread.h"
#include "LxPublic/LxWorkerThread.h"

namespace {

class RecordingThread : public LxThread {
public:
    std::mutex mutex;
    std::vector<std::pair<int, intptr_t>> handled;

protected:
    void HandleMessage(const LxThreadMessage& message) override {
        if (message.code == 99) throw std::runtime_error("bad message");
        std::lock_guard<std::mutex> lock(mutex);
        handled.emplace_back(message.code, message.param1);
    }
};

std::mutex gExceptionMutex;
std::vector<std::string> gExceptions;
void RecordException(const char* what, const char* thread) {
    std::lock_guard<std::mutex> lock(gExceptionMutex);
    gExceptions.push_back(std::string(thread) + ": " + what);
}

class ThrowingWorker : public LxWorkerThread {
public:
    explicit ThrowingWorker(bool library) : LxWorkerThread(kLxThreadPriorityHighest), library_(library) {}
    ~ThrowingWorker() override { Join(); }
    std::atomic<int> steps{0};

protected:
    void Run() override {
        ++steps;
        if (library_) throw LxLCException("kLxErrorInternal");
        throw 42;
    }
    const char* GetThreadName() const override { return "reader"; }

private:
    bool library_;
};

}  // namespace

TEST(PlatformThread, MessagesAreHandledInOrderUntilQuit) {
    LxExceptionHandler previous = LxExceptionUtils::SetExceptionHandler(&RecordException);
    gExceptions.clear();
    {
        RecordingThread thread;
        EXPECT_FALSE(thread.Post(15, 1));  // not started yet
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.IsRunning());
        for (int i = 0; i < 100; ++i) thread.Post(15, i);
        thread.Post(99);  // throws inside the handler; the thread carries on
        thread.Post(16, 7);
        thread.Quit();
        thread.Join();
        EXPECT_FALSE(thread.IsRunning());
        EXPECT_FALSE(thread.Post(15, 1000));  // after quit nothing is queued
        ASSERT_EQ(thread.handled.size(), 101u);
        for (int i = 0; i < 100; ++i) EXPECT_EQ(thread.handled[static_cast<size_t>(i)], std::make_pair(15, intptr_t(i)));
        EXPECT_EQ(thread.handled.back(), std::make_pair(16, intptr_t(7)));
    }
    {
        // Destroying a running thread quits and joins it.
        RecordingThread thread;
        thread.Start();
        thread.Post(15, 1);
    }
    LxExceptionUtils::SetExceptionHandler(previous);
    ASSERT_EQ(gExceptions.size(), 1u);
    EXPECT_EQ(gExceptions[0], "message thread: bad message");
}

TEST(PlatformThread, WorkerExceptionsGoToTheHandler) {
    LxExceptionHandler previous = LxExceptionUtils::SetExceptionHandler(&RecordException);
    gExceptions.clear();
    ThrowingWorker library(true), other(false);
    EXPECT_EQ(library.GetPriority(), 4);
    ASSERT_TRUE(library.Start());
    EXPECT_FALSE(library.Start());  // already started
    ASSERT_TRUE(other.Start());
    library.Join();
    other.Join();
    EXPECT_TRUE(library.IsFinished());
    EXPECT_EQ(library.steps.load(), 1);
    LxExceptionUtils::SetExceptionHandler(previous);
    ASSERT_EQ(gExceptions.size(), 2u);
    std::sort(gExceptions.begin(), gExceptions.end());
    EXPECT_EQ(gExceptions[0], "reader: kLxErrorInternal");
    EXPECT_EQ(gExceptions[1], "reader: unknown exception");
}

