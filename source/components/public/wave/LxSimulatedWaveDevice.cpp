#include "LxSimulatedWaveDevice.h"

#include <algorithm>
#include <chrono>

LxSimulatedWaveDevice::LxSimulatedWaveDevice(LxSimulatedWaveDriver& owner, bool isInput, unsigned index,
                                             const LxWaveFormat& waveFormat, LxWaveEvent& doneEvent)
    : driver(owner), input(isInput), deviceIndex(index), format(waveFormat), event(doneEvent) {
    driver.DeviceOpened();
    thread = std::thread([this] { Run(); });
}

LxSimulatedWaveDevice::~LxSimulatedWaveDevice() {
    bool stillOpen = false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        stillOpen = open;
    }
    if (!stillOpen) return;
    // Closing by force: whatever is queued is handed back first.
    {
        std::lock_guard<std::mutex> lock(mutex);
        ResetQueue();
    }
    Shutdown();
}

int LxSimulatedWaveDevice::Prepare(LxWaveHeader& header) {
    if (int failure = driver.TakeFailure(LxWaveCall::Prepare)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (header.data == nullptr) return kLxWaveInvalidParameter;
    header.flags |= LxWaveHeader::kPrepared;
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Unprepare(LxWaveHeader& header) {
    if (int failure = driver.TakeFailure(LxWaveCall::Unprepare)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (header.flags & LxWaveHeader::kInQueue) return kLxWaveStillPlaying;
    header.flags &= ~LxWaveHeader::kPrepared;
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Queue(LxWaveHeader& header) {
    if (int failure = driver.TakeFailure(LxWaveCall::Queue)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (!(header.flags & LxWaveHeader::kPrepared)) return kLxWaveUnprepared;
    if (header.flags & LxWaveHeader::kInQueue) return kLxWaveStillPlaying;
    if (header.flags & kHoldsInput) {
        --inputHeld;
        driver.InputReturned(1);
    }
    header.bytesRecorded = 0;
    header.flags = LxWaveHeader::kPrepared | LxWaveHeader::kInQueue;
    queue.push_back(&header);
    wake.notify_all();
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Start() {
    if (int failure = driver.TakeFailure(LxWaveCall::Start)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    started = true;
    wake.notify_all();
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Stop() {
    if (int failure = driver.TakeFailure(LxWaveCall::Stop)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    started = false;
    ++generation;
    // Buffers already recorded are handed back; empty ones stay queued.
    HandBackBatch();
    wake.notify_all();
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Reset() {
    if (int failure = driver.TakeFailure(LxWaveCall::Reset)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    ResetQueue();
    return kLxWaveOk;
}

void LxSimulatedWaveDevice::ResetQueue() {
    started = false;
    ++generation;
    HandBackBatch();
    bool any = !queue.empty();
    for (LxWaveHeader* header : queue) {
        header->bytesRecorded = 0;
        header->flags = (header->flags & ~LxWaveHeader::kInQueue) | LxWaveHeader::kDone;
    }
    queue.clear();
    if (any) event.Set();
    wake.notify_all();
}

int LxSimulatedWaveDevice::GetPosition(uint32_t& frames) {
    if (int failure = driver.TakeFailure(LxWaveCall::Position)) return failure;
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    frames = framesPlayed;
    return kLxWaveOk;
}

int LxSimulatedWaveDevice::Close() {
    if (int failure = driver.TakeFailure(LxWaveCall::Close)) return failure;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!open) return kLxWaveInvalidHandle;
        if (!queue.empty() || !batch.empty()) return kLxWaveStillPlaying;
    }
    Shutdown();
    return kLxWaveOk;
}

bool LxSimulatedWaveDevice::IsDone(const LxWaveHeader& header) const {
    return (header.flags.load() & LxWaveHeader::kDone) != 0;
}

uint32_t LxSimulatedWaveDevice::GetBytesRecorded(const LxWaveHeader& header) const {
    return header.bytesRecorded.load();
}

void LxSimulatedWaveDevice::Shutdown() {
    int held = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        quit = true;
        open = false;
        ++generation;
        held = inputHeld;
        inputHeld = 0;
        wake.notify_all();
    }
    if (thread.joinable()) thread.join();
    // Recorded buffers never handed back count as handed back now.
    driver.InputReturned(held);
    driver.DeviceClosed(input ? nullptr : &played);
}

void LxSimulatedWaveDevice::MarkDone(LxWaveHeader& header) {
    header.flags = (header.flags & ~LxWaveHeader::kInQueue) | LxWaveHeader::kDone;
}

void LxSimulatedWaveDevice::HandBackBatch() {
    if (batch.empty()) return;
    // Last filled first: a reader must not take the order of the done marks
    // for the order of the audio.
    for (auto it = batch.rbegin(); it != batch.rend(); ++it) MarkDone(**it);
    batch.clear();
    event.Set();
}

bool LxSimulatedWaveDevice::Pace(std::unique_lock<std::mutex>& lock, uint32_t bytes) {
    unsigned seen = generation;
    double speed = driver.Speed();
    if (speed > 0.0 && format.BytesPerSecond() > 0) {
        double seconds = static_cast<double>(bytes) / format.BytesPerSecond() / speed;
        wake.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return quit || generation != seen; });
    }
    return !quit && generation == seen;
}

void LxSimulatedWaveDevice::Run() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!quit) {
        if (input) {
            RunInput(lock);
        } else {
            RunOutput(lock);
        }
    }
}

void LxSimulatedWaveDevice::RunOutput(std::unique_lock<std::mutex>& lock) {
    if (queue.empty()) {
        wake.wait(lock);
        return;
    }
    LxWaveHeader* header = queue.front();
    if (!Pace(lock, header->bufferLength)) return;
    played.insert(played.end(), header->data, header->data + header->bufferLength);
    framesPlayed += header->bufferLength / static_cast<uint32_t>(format.BlockAlign());
    queue.pop_front();
    MarkDone(*header);
    event.Set();
}

void LxSimulatedWaveDevice::RunInput(std::unique_lock<std::mutex>& lock) {
    if (!started || queue.empty()) {
        wake.wait(lock);
        return;
    }
    if (!driver.HasInput()) {
        // A script fed later is picked up within a millisecond.
        wake.wait_for(lock, std::chrono::milliseconds(1));
        return;
    }
    LxWaveHeader* header = queue.front();
    if (!Pace(lock, header->bufferLength)) return;
    size_t got = driver.TakeInput(header->data, header->bufferLength);
    if (got == 0) return;
    queue.pop_front();
    header->bytesRecorded = static_cast<uint32_t>(got);
    header->flags |= kHoldsInput;
    ++inputHeld;
    batch.push_back(header);
    if (static_cast<int>(batch.size()) >= driver.InputBatch() || queue.empty() || !driver.HasInput()) HandBackBatch();
}
