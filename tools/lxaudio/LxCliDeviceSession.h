#pragma once
// One recording or playback of a command, as the device threads report it:
// input level and captured buffers (kind 38), a capture that ended itself
// (39), started (32), position (33) and stopped (36), kept for the command's
// own thread to show. A recording is
// ended on every way out of the command (StopCapture, or CancelCapture when
// the command fails), so that no device runs on when the controller goes.
//
// Recording a fixed length: once that many 100 ms buffers are in, the capture's
// reader thread waits in the level report until the command stops the capture,
// so that a device faster than real time (a file, a test double) does not run
// far past the length asked for. The wait is bounded, so a command that never
// comes back cannot stall the device.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include "LxAudioCore.h"

class LxCliDeviceSession {
public:
    explicit LxCliDeviceSession(LxAudioController& owner) : controller(owner) {}
    ~LxCliDeviceSession();
    LxCliDeviceSession(const LxCliDeviceSession&) = delete;
    LxCliDeviceSession& operator=(const LxCliDeviceSession&) = delete;

    // targetBuffers 0: no length; volume -1: leave the input's volume alone.
    bool StartCapture(int deviceID, float volume, int targetBuffers);
    // The recording's clip ID, or -1 when nothing was recorded.
    int StopCapture();
    void StartPlayBack(int clipID, int startFrame, int endFrame);

    float Level() const { return level.load(); }
    int CapturedBuffers() const { return buffers.load(); }
    bool Full() const { return full.load(); }
    bool Started() const { return started.load(); }
    bool Stopped() const { return stopped.load(); }
    long long Position() const { return position.load(); }
    // The capture ended itself (the disk was nearly full, or its journal could
    // not be written); its clip ID, or -1 when nothing was captured.
    bool EndedItself() const { return endedItself.load(); }
    int EndedClipID() const { return endedClipID.load(); }

private:
    static void OnDevice(LxCallBack& callBack, void* context);
    void Release();

    LxAudioController& controller;
    bool capturing = false;
    std::atomic<float> level{0.0f};
    std::atomic<int> buffers{0};
    std::atomic<bool> started{false};
    std::atomic<bool> stopped{false};
    std::atomic<long long> position{0};
    std::atomic<bool> endedItself{false};
    std::atomic<int> endedClipID{-1};
    int targetBuffers = 0;
    std::atomic<bool> full{false};
    std::mutex mutex;
    std::condition_variable release;
    bool released = false;
};
