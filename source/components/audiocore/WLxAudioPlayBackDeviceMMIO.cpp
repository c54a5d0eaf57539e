#include "WLxAudioPlayBackDeviceMMIO.h"

#include "LxAudioConstants.h"
#include "LxPublic/LxOSVersion.h"

WLxAudioPlayBackDeviceMMIO::WLxAudioPlayBackDeviceMMIO(LxStopPlayBackFunction function, void* functionContext)
    : LxAudioPlayBackDevice(function, functionContext), writerThread(*this) {}

WLxAudioPlayBackDeviceMMIO::~WLxAudioPlayBackDeviceMMIO() {
    // The writer reads the source and the headers, the driver the headers and
    // the event: both stop before anything of this object goes.
    writerThread.running = false;
    event.Set();
    writerThread.Join();
    if (handle) {
        handle->Reset();
        handle->Close();
        handle.reset();
    }
    FreeBuffers();
}

bool WLxAudioPlayBackDeviceMMIO::Start(LxCallBackFunction function, void* functionContext) {
    callback = function;
    context = functionContext;
    if (!handle) {
        LxWaveFormat format;
        format.channels = 2;
        format.framesPerSecond = kLxFrameRate;
        format.bitsPerSample = 16;
        if (LxWaveDriver::Current().OpenOutput(format, event, handle) != kLxWaveOk) {
            handle.reset();
            return false;
        }
    }
    bufferSize = kBufferBytes;
    for (LxWaveHeader& header : headers) {
        delete[] header.data;
        header.bufferLength = 0;
        header.data = new unsigned char[kBufferBytes];
        header.flags = 0;
        if (handle->Prepare(header) != kLxWaveOk) return false;
    }
    // Prime the driver with up to four buffers.
    for (LxWaveHeader& header : headers) {
        int bytes = FillBuffer(header);
        if (bytes < 1) break;
        header.bufferLength = static_cast<uint32_t>(bytes);
        if (handle->Queue(header) != kLxWaveOk) return false;
        framesWritten += bytes / 4;
        ReportPosition(false);
    }
    if (framesWritten == 0) {
        // Nothing to play: stopped at once, without a writer thread.
        if (stopFunction != nullptr) stopFunction(SourceClipID(), stopContext);
        return true;
    }
    if (callback != nullptr && context != nullptr) {
        LxCallBack started(kLxCallBackPlaybackStarted);
        callback(started, context);
    }
    writerThread.Start();
    return true;
}

bool WLxAudioPlayBackDeviceMMIO::Stop() {
    bool closed = false;
    if (handle) {
        writerThread.running = false;
        event.Set();
        writerThread.Join();
        handle->Reset();
        for (LxWaveHeader& header : headers) {
            handle->Unprepare(header);
            delete[] header.data;
            header.data = nullptr;
        }
        closed = handle->Close() == kLxWaveOk;
        handle.reset();
    }
    if (callback != nullptr) {
        LxCallBack stopped(kLxCallBackPlaybackStopped);
        callback(stopped, context);
    }
    callback = nullptr;
    context = nullptr;
    return closed;
}

int WLxAudioPlayBackDeviceMMIO::FillBuffer(LxWaveHeader& header) {
    ILxAudioPlaybackClip* clip = source ? source->GetClip() : nullptr;
    if (clip == nullptr || header.data == nullptr) return 0;
    int filled = 0;
    while (filled < bufferSize) {
        int got = 0;
        clip->GetNextPCMData(2, header.data + filled, bufferSize - filled, got, nullptr, false);
        if (got < 1) break;
        filled += got;
    }
    return filled;
}

void WLxAudioPlayBackDeviceMMIO::ReportPosition(bool final) {
    if (callback == nullptr || context == nullptr) return;
    LxCallBack position(kLxCallBackPlaybackPosition);
    auto value = static_cast<float>(framesWritten);
    if (!final && LxOSVersion::GetOSVersion() <= 9) {
        uint32_t samples = 0;
        if (handle && handle->GetPosition(samples) == kLxWaveOk) value = static_cast<float>(samples);
    }
    position.SetValue(value);
    callback(position, context);
}

void WLxAudioPlayBackDeviceMMIO::FreeBuffers() {
    for (LxWaveHeader& header : headers) {
        delete[] header.data;
        header.data = nullptr;
    }
}
