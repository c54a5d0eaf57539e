#include "WLxAudioDeviceReaderThreadMMIO.h"

#include <cstdint>
#include <cstring>
#include "WLxAudioCaptureDeviceMMIO.h"
#include "LxPublic/LxClock.h"
#include "LxPublic/LxException.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFatalException.h"

WLxAudioDeviceReaderThreadMMIO::WLxAudioDeviceReaderThreadMMIO(WLxAudioCaptureDeviceMMIO& owner)
    : LxWorkerThread(kLxThreadPriorityHighest), device(owner) {}

WLxAudioDeviceReaderThreadMMIO::~WLxAudioDeviceReaderThreadMMIO() { Join(); }

void WLxAudioDeviceReaderThreadMMIO::Run() {
    LxExceptionUtils::InstallExceptionHandler();
    try {
        while (running) {
            device.event.Wait();
            // Done buffers are serviced in the order they were queued, oldest
            // first, stopping at the first one not yet done. Scanning the
            // headers by index instead would, when a late wake-up finds several
            // buffers done at once, queue a later buffer's audio before an
            // earlier one's whenever the oldest queued header is not header 0,
            // and the recording would come out reordered.
            while (!device.queuedOrder.empty()) {
                int index = device.queuedOrder.front();
                if (!device.handle->IsDone(device.headers[index])) break;
                device.queuedOrder.pop_front();
                ServiceBuffer(index);
            }
        }
    } catch (const LxException& e) {
        LxExceptionUtils::HandleException(e, GetThreadName());
    } catch (...) {
        LxExceptionUtils::HandleException(LxFatalException(kLxExceptionMsgStr), GetThreadName());
    }
}

void WLxAudioDeviceReaderThreadMMIO::ServiceBuffer(int index) {
    LxWaveHeader& header = device.headers[index];
    const uint32_t recorded = device.handle->GetBytesRecorded(header);

    // Input level: the loudest of every tenth sample (signed, no absolute
    // value), scaled to full scale and by the capture volume.
    if (device.callback != nullptr && recorded >= 2 && header.data != nullptr) {
        LxCallBack level(kLxCallBackInputLevel);
        float loudest = -32768.0f;
        const uint32_t samples = recorded / 2;
        for (uint32_t i = 0; i < samples; i += 10) {
            int16_t sample = 0;
            std::memcpy(&sample, header.data + static_cast<size_t>(i) * 2, sizeof sample);
            if (static_cast<float>(sample) > loudest) loudest = static_cast<float>(sample);
        }
        level.SetValue(loudest * 3.0517578e-05f * device.GetVolume());
        device.callback(level, device.context);
    }

    if (device.capturing && header.data != nullptr) {
        auto* item = new LxAudioCaptureData(header.data, static_cast<int>(recorded), device.GetVolume(),
                                            LxGetTickCountSinceAppStartTimeNS100());
        device.deque->PushBack(item);
    }

    if (device.handle->Queue(header) == kLxWaveOk) device.queuedOrder.push_back(index);
}
