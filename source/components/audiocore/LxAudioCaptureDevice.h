#pragma once
// A capture device: records from an input into the capture's shared deque, one
// LxAudioCaptureData per buffer, for a consumer thread to take. The device holds
// the consumer, owning it unless the host supplied it.
#include <atomic>
#include "LxAudioCaptureConsumerBase.h"
#include "LxAudioCaptureData.h"
#include "LxSharedDeque.h"
#include "LxPublic/LxCallBack.h"

class LxAudioCaptureDevice {
public:
    explicit LxAudioCaptureDevice(LxSharedDeque<LxAudioCaptureData*>& deque);
    // Deletes the consumer when it owns it.
    virtual ~LxAudioCaptureDevice();
    LxAudioCaptureDevice(const LxAudioCaptureDevice&) = delete;
    LxAudioCaptureDevice& operator=(const LxAudioCaptureDevice&) = delete;

    // deviceID: input device index in the high 16 bits, source line in the low
    // 16 bits. volume -1.0 leaves the input's volume as it is; capturing false
    // starts paused.
    virtual bool Start(const int& deviceID, float volume, bool capturing, LxCallBackFunction callback,
                       void* context) = 0;
    // No item is produced after Stop returns.
    virtual bool Stop() = 0;
    virtual bool SetVolume(float volume) = 0;
    // The volume last asked for (not the one the mixer got).
    virtual float GetVolume() = 0;

    void SetConsumer(LxAudioCaptureConsumerBase* newConsumer, bool owns) {
        consumer = newConsumer;
        ownsConsumer = owns;
    }
    LxAudioCaptureConsumerBase* GetConsumer() const { return consumer; }
    // While capturing is false the device keeps recording (and reporting the
    // level) but queues nothing.
    void SetCapturing(bool value) { capturing = value; }
    float GetAppliedVolume() const { return appliedVolume; }

protected:
    LxAudioCaptureConsumerBase* consumer = nullptr;
    bool ownsConsumer = true;
    LxCallBackFunction callback = nullptr;
    void* context = nullptr;
    // The last volume written to the mixer.
    float appliedVolume = 0.0f;
    std::atomic<bool> capturing{true};
    LxSharedDeque<LxAudioCaptureData*>* deque;
};
