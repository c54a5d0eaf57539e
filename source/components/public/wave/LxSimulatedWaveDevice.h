#pragma once
// A device of the simulated driver (either direction). Its own thread takes the
// queued buffers in order: an output buffer is appended to the device's record
// of what was played, an input buffer is filled from the driver's input script.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>
#include "LxPublic/wave/LxSimulatedWaveDriver.h"

class LxSimulatedWaveDevice : public LxWaveDevice {
public:
    LxSimulatedWaveDevice(LxSimulatedWaveDriver& driver, bool input, unsigned deviceIndex,
                          const LxWaveFormat& format, LxWaveEvent& event);
    ~LxSimulatedWaveDevice() override;

    int Prepare(LxWaveHeader& header) override;
    int Unprepare(LxWaveHeader& header) override;
    int Queue(LxWaveHeader& header) override;
    int Start() override;
    int Stop() override;
    int Reset() override;
    int GetPosition(uint32_t& frames) override;
    int Close() override;
    bool IsDone(const LxWaveHeader& header) const override;
    uint32_t GetBytesRecorded(const LxWaveHeader& header) const override;

    unsigned GetDeviceIndex() const { return deviceIndex; }

private:
    // Set on headers that hold recorded input not yet handed back.
    static constexpr uint32_t kHoldsInput = 0x100;

    void Run();
    void RunOutput(std::unique_lock<std::mutex>& lock);
    void RunInput(std::unique_lock<std::mutex>& lock);
    // Waits as long as one buffer of bytes lasts at the driver's speed; false
    // when a reset, stop or close came first.
    bool Pace(std::unique_lock<std::mutex>& lock, uint32_t bytes);
    void MarkDone(LxWaveHeader& header);
    void HandBackBatch();
    // Reset without the injected failures (also used when closing by force).
    void ResetQueue();
    void Shutdown();

    LxSimulatedWaveDriver& driver;
    const bool input;
    const unsigned deviceIndex;
    const LxWaveFormat format;
    LxWaveEvent& event;

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<LxWaveHeader*> queue;
    // Input buffers filled and waiting to be handed back together.
    std::vector<LxWaveHeader*> batch;
    bool started = false;
    bool open = true;
    bool quit = false;
    // Counts resets, stops and closes, so that a paced wait notices them.
    unsigned generation = 0;
    uint32_t framesPlayed = 0;
    int inputHeld = 0;
    std::vector<unsigned char> played;
    std::thread thread;
};
