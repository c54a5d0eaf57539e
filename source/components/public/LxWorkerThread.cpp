#include "LxPublic/LxWorkerThread.h"

#include "LxPublic/LxExceptionUtils.h"

LxWorkerThread::LxWorkerThread(int threadPriority) : priority(threadPriority) {}

LxWorkerThread::~LxWorkerThread() { Join(); }

bool LxWorkerThread::Start() {
    if (thread.joinable()) return false;
    finished = false;
    thread = std::thread([this] {
        try {
            Run();
        } catch (...) {
            LxExceptionUtils::HandleException(std::current_exception(), GetThreadName());
        }
        finished = true;
    });
    return true;
}

void LxWorkerThread::Join() {
    if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) thread.join();
}
