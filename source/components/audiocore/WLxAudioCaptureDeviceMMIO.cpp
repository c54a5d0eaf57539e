#include "WLxAudioCaptureDeviceMMIO.h"

#include <chrono>
#include <thread>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxPublic/LxAssert.h"


WLxAudioCaptureDeviceMMIO::WLxAudioCaptureDeviceMMIO(LxSharedDeque<LxAudioCaptureData*>& shared)
    : LxAudioCaptureDevice(shared), readerThread(*this) {}

WLxAudioCaptureDeviceMMIO::~WLxAudioCaptureDeviceMMIO() {
    // The reader and the driver both use the headers and the event: both stop
    // before anything of this object goes.
    readerThread.running = false;
    event.Set();
    readerThread.Join();
    if (handle) {
        handle->Stop();
        CloseWaveIn();
        handle.reset();
    }
    FreeBuffers();
}

bool WLxAudioCaptureDeviceMMIO::Start(const int& deviceID, float volume, bool capturingFlag,
                                      LxCallBackFunction function, void* functionContext) {
    capturing = capturingFlag;
    callback = function;
    context = functionContext;
    deviceIndex = static_cast<unsigned>(deviceID) >> 16;
    lineIndex = static_cast<unsigned>(deviceID) & 0xFFFFu;

    if (!handle) {
        driver = &LxWaveDriver::Current();
        LxWaveFormat format;
        format.channels = 1;
        format.framesPerSecond = kLxFrameRate;
        format.bitsPerSample = 16;
        if (driver->OpenInput(deviceIndex, format, event, handle) != kLxWaveOk) {
            handle.reset();
            return false;
        }
    }
    // The recording source; an input without a mixer records what it records.
    if (std::unique_ptr<LxWaveMixer> mixer = driver->OpenInputMixer(*handle)) mixer->SelectRecordingLine(lineIndex);
    if (volume != -1.0f) SetVolume(volume);

    for (int i = 0; i < kBufferCount; ++i) {
        LxWaveHeader& header = headers[i];
        header.bufferLength = kBufferBytes;
        delete[] header.data;
        header.data = new unsigned char[kBufferBytes];
        header.flags = 0;
        if (handle->Prepare(header) != kLxWaveOk) return false;
        if (handle->Queue(header) != kLxWaveOk) return false;
        queuedOrder.push_back(i);
    }
    readerThread.Start();
    return handle->Start() == kLxWaveOk;
}

bool WLxAudioCaptureDeviceMMIO::Stop() {
    if (!handle) {
        callback = nullptr;
        context = nullptr;
        return true;
    }
    bool stopped = handle->Stop() == kLxWaveOk;
    readerThread.running = false;
    event.Set();
    readerThread.Join();
    for (LxWaveHeader& header : headers) {
        handle->Unprepare(header);
        delete[] header.data;
        header.data = nullptr;
    }
    CloseWaveIn();
    handle.reset();
    callback = nullptr;
    context = nullptr;
    return stopped;
}

void WLxAudioCaptureDeviceMMIO::CloseWaveIn() {
    for (int attempt = 0; attempt < 100; ++attempt) {
        int result = handle->Close();
        if (result == kLxWaveOk) break;
        if (result != kLxWaveStillPlaying) {
            LxReportAt("", LxReportSites::kCaptureCloseFailed);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (handle->Reset() != kLxWaveOk) {
            LxReportAt("", LxReportSites::kCaptureResetFailed);
            break;
        }
    }
}

void WLxAudioCaptureDeviceMMIO::FreeBuffers() {
    for (LxWaveHeader& header : headers) {
        delete[] header.data;
        header.data = nullptr;
    }
}

bool WLxAudioCaptureDeviceMMIO::SetVolume(float volume) {
    if (volume < 0.0f) volume = 4.0f;
    requestedVolume = volume;
    float clamped = (volume < 0.0f || volume > 1.0f) ? 1.0f : volume;
    if (clamped == appliedVolume) return true;
    if (!handle) return false;
    std::unique_ptr<LxWaveMixer> mixer = driver->OpenInputMixer(*handle);
    if (!mixer) return false;
    bool written = mixer->SetRecordingLineVolume(lineIndex, clamped) == kLxWaveOk;
    if (written) appliedVolume = clamped;
    return written;
}
