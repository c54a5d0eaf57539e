#pragma once
// One buffer handed to a wave device. The device logic owns the bytes; between
// Prepare and Unprepare the driver may keep a record of its own in driverData
// (the WinMM driver keeps its WAVEHDR there). While a header is queued only the
// driver writes it; once the driver has marked it done (and signalled the
// device's event) it belongs to the device logic again until queued anew. Ask
// the open device (LxWaveDevice::IsDone, GetBytesRecorded) rather than reading
// the flags here: a native driver keeps its own.
#include <atomic>
#include <cstdint>

struct LxWaveHeader {
    static constexpr uint32_t kDone = 0x01;
    static constexpr uint32_t kPrepared = 0x02;
    static constexpr uint32_t kInQueue = 0x10;

    unsigned char* data = nullptr;
    // Bytes to play, or room to record into.
    uint32_t bufferLength = 0;
    // Bytes recorded into data when an input buffer is done.
    std::atomic<uint32_t> bytesRecorded{0};
    std::atomic<uint32_t> flags{0};
    void* driverData = nullptr;
};
