#include "LxAudioCaptureData.h"

#include <cstring>

LxAudioCaptureData::LxAudioCaptureData(const unsigned char* bytes, int count, float captureVolume, uint64_t stamp)
    : timeStamp(stamp), volume(captureVolume) {
    if (bytes == nullptr || count < 1) return;
    data = new unsigned char[static_cast<size_t>(count)];
    std::memcpy(data, bytes, static_cast<size_t>(count));
    byteCount = count;
}

LxAudioCaptureData::~LxAudioCaptureData() {
    delete[] data;
    data = nullptr;
    byteCount = 0;
}
