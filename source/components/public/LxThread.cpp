#include "LxPublic/LxThread.h"

#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxLock.h"

LxThread::LxThread(int threadPriority) : priority(threadPriority) {}

LxThread::~LxThread() {
    if (IsRunning()) Quit();
    Join();
}

bool LxThread::Start() {
    LxLock lock(mutex);
    if (running || thread.joinable()) return false;
    running = true;
    thread = std::thread([this] { Loop(); });
    return true;
}

bool LxThread::Post(int code, intptr_t param1, intptr_t param2) {
    LxLock lock(mutex);
    if (!running) return false;
    queue.push_back({code, param1, param2});
    condition.Signal();
    return true;
}

void LxThread::Join() {
    if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) thread.join();
}

bool LxThread::IsRunning() const {
    LxLock lock(mutex);
    return running;
}

void LxThread::HandleMessage(const LxThreadMessage&) {}

void LxThread::Loop() {
    for (;;) {
        LxThreadMessage message;
        {
            LxLock lock(mutex);
            while (queue.empty()) condition.Wait(lock);
            message = queue.front();
            queue.pop_front();
            if (message.code == kMessageQuit) {
                running = false;
                queue.clear();
                return;
            }
        }
        try {
            HandleMessage(message);
        } catch (...) {
            LxExceptionUtils::HandleException(std::current_exception(), "message thread");
        }
    }
}
