#include "LxAudioCaptureDevice.h"

LxAudioCaptureDevice::LxAudioCaptureDevice(LxSharedDeque<LxAudioCaptureData*>& shared) : deque(&shared) {}

LxAudioCaptureDevice::~LxAudioCaptureDevice() {
    if (consumer != nullptr && ownsConsumer) delete consumer;
    consumer = nullptr;
}
