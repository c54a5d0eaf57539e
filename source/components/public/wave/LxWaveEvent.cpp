#include "LxPublic/wave/LxWaveEvent.h"

#include <chrono>

#if defined(_WIN32)
#include <windows.h>

LxWaveEvent::LxWaveEvent() : handle(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

LxWaveEvent::~LxWaveEvent() {
    if (handle != nullptr) CloseHandle(static_cast<HANDLE>(handle));
}

void LxWaveEvent::Set() { SetEvent(static_cast<HANDLE>(handle)); }

void LxWaveEvent::Wait() { WaitForSingleObject(static_cast<HANDLE>(handle), INFINITE); }

bool LxWaveEvent::Wait(int milliseconds) {
    return WaitForSingleObject(static_cast<HANDLE>(handle), static_cast<DWORD>(milliseconds)) == WAIT_OBJECT_0;
}

#else

LxWaveEvent::LxWaveEvent() = default;

LxWaveEvent::~LxWaveEvent() = default;

void LxWaveEvent::Set() {
    std::lock_guard<std::mutex> lock(mutex);
    signalled = true;
    condition.notify_one();
}

void LxWaveEvent::Wait() {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait(lock, [this] { return signalled; });
    signalled = false;
}

bool LxWaveEvent::Wait(int milliseconds) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!condition.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return signalled; })) return false;
    signalled = false;
    return true;
}

#endif
