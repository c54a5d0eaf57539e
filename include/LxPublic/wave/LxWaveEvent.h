#pragma once
// An auto-reset event: Set wakes one waiter (or the next one to wait) and the
// event resets itself as that wait returns. The wave driver sets it whenever a
// buffer is done; the device thread waits on it. On Windows it is a native
// event handle, which the WinMM driver hands to waveInOpen/waveOutOpen.
#include <condition_variable>
#include <mutex>
#include "../LxPublicExport.h"

class LXPUBLIC_API LxWaveEvent {
public:
    LxWaveEvent();
    ~LxWaveEvent();
    LxWaveEvent(const LxWaveEvent&) = delete;
    LxWaveEvent& operator=(const LxWaveEvent&) = delete;

    void Set();
    // Waits without time-out.
    void Wait();
    // Waits at most milliseconds; false when the time ran out.
    bool Wait(int milliseconds);
    // The Windows event handle (HANDLE); null elsewhere.
    void* GetNativeHandle() const { return handle; }

private:
    void* handle = nullptr;
    std::mutex mutex;
    std::condition_variable condition;
    bool signalled = false;
};
