#pragma once
// One captured buffer on its way from the capture device to the consumer: a
// copy of the recorded bytes with their format, the moment it was recorded and
// the capture volume the host asked for. An item without data is the terminal
// item that ends a capture.
#include <cstdint>
#include "LxAudioConstants.h"
#include "LxAudioCoreExport.h"

class LXAUDIOCORE_API LxAudioCaptureData {
public:
    // Copies count bytes; null bytes or a count below 1 make an item without data.
    LxAudioCaptureData(const unsigned char* bytes, int count, float volume, uint64_t timeStamp);
    ~LxAudioCaptureData();
    LxAudioCaptureData(const LxAudioCaptureData&) = delete;
    LxAudioCaptureData& operator=(const LxAudioCaptureData&) = delete;

    bool IsTerminal() const { return data == nullptr; }

    unsigned char* data = nullptr;
    int byteCount = 0;
    int channels = 1;
    int framesPerSecond = kLxFrameRate;
    int bitsPerSample = 16;
    // LxGetTickCountSinceAppStartTimeNS100() when the item was made.
    uint64_t timeStamp = 0;
    float volume = 1.0f;
};
