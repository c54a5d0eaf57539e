#include "LxWinMMWaveDevice.h"

LxWinMMWaveDevice::LxWinMMWaveDevice(HWAVEIN in, HWAVEOUT out) : input(in), output(out) {}

LxWinMMWaveDevice::~LxWinMMWaveDevice() {
    if (!open) return;
    // Closing by force: everything queued comes back, then every header is
    // unprepared, then the device closes.
    Reset();
    for (auto& entry : prepared) {
        if (entry.first->dwFlags & WHDR_PREPARED) UnprepareNative(entry.first);
    }
    ForgetPrepared();
    if (input != nullptr) {
        waveInClose(input);
    } else {
        waveOutClose(output);
    }
}

MMRESULT LxWinMMWaveDevice::PrepareNative(WAVEHDR* native) {
    return input != nullptr ? waveInPrepareHeader(input, native, sizeof(WAVEHDR))
                            : waveOutPrepareHeader(output, native, sizeof(WAVEHDR));
}

MMRESULT LxWinMMWaveDevice::UnprepareNative(WAVEHDR* native) {
    return input != nullptr ? waveInUnprepareHeader(input, native, sizeof(WAVEHDR))
                            : waveOutUnprepareHeader(output, native, sizeof(WAVEHDR));
}

int LxWinMMWaveDevice::Prepare(LxWaveHeader& header) {
    if (!open) return kLxWaveInvalidHandle;
    if (header.data == nullptr) return kLxWaveInvalidParameter;
    auto* native = static_cast<WAVEHDR*>(header.driverData);
    if (native == nullptr) {
        native = new WAVEHDR{};
    } else if (native->dwFlags & WHDR_PREPARED) {
        UnprepareNative(native);
    }
    native->lpData = reinterpret_cast<LPSTR>(header.data);
    native->dwBufferLength = header.bufferLength;
    native->dwBytesRecorded = 0;
    native->dwFlags = 0;
    // A buffer prepared before its length is known (a playback buffer is
    // filled later) is prepared natively when it is queued.
    if (header.bufferLength > 0) {
        MMRESULT result = PrepareNative(native);
        if (result != MMSYSERR_NOERROR) {
            if (header.driverData == nullptr) delete native;
            return static_cast<int>(result);
        }
    }
    header.driverData = native;
    prepared[native] = &header;
    header.flags = LxWaveHeader::kPrepared;
    return kLxWaveOk;
}

int LxWinMMWaveDevice::Unprepare(LxWaveHeader& header) {
    if (!open) return kLxWaveInvalidHandle;
    auto* native = static_cast<WAVEHDR*>(header.driverData);
    if (native == nullptr) return kLxWaveOk;
    if (native->dwFlags & WHDR_PREPARED) {
        MMRESULT result = UnprepareNative(native);
        if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    }
    prepared.erase(native);
    delete native;
    header.driverData = nullptr;
    header.flags = 0;
    return kLxWaveOk;
}

int LxWinMMWaveDevice::Queue(LxWaveHeader& header) {
    if (!open) return kLxWaveInvalidHandle;
    auto* native = static_cast<WAVEHDR*>(header.driverData);
    if (native == nullptr) return kLxWaveUnprepared;
    if (!(native->dwFlags & WHDR_PREPARED) || native->lpData != reinterpret_cast<LPSTR>(header.data) ||
        native->dwBufferLength != header.bufferLength) {
        // Not prepared natively yet, or the buffer or its length changed since
        // (a played buffer is written with the length filled): prepare it now.
        if (native->dwFlags & WHDR_PREPARED) {
            MMRESULT result = UnprepareNative(native);
            if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
        }
        native->lpData = reinterpret_cast<LPSTR>(header.data);
        native->dwBufferLength = header.bufferLength;
        native->dwFlags = 0;
        MMRESULT again = PrepareNative(native);
        if (again != MMSYSERR_NOERROR) return static_cast<int>(again);
    }
    native->dwBytesRecorded = 0;
    native->dwFlags &= ~static_cast<DWORD>(WHDR_DONE);
    MMRESULT result = input != nullptr ? waveInAddBuffer(input, native, sizeof(WAVEHDR))
                                       : waveOutWrite(output, native, sizeof(WAVEHDR));
    return static_cast<int>(result);
}

int LxWinMMWaveDevice::Start() {
    if (!open) return kLxWaveInvalidHandle;
    return input != nullptr ? static_cast<int>(waveInStart(input)) : kLxWaveOk;
}

int LxWinMMWaveDevice::Stop() {
    if (!open) return kLxWaveInvalidHandle;
    return input != nullptr ? static_cast<int>(waveInStop(input)) : kLxWaveOk;
}

int LxWinMMWaveDevice::Reset() {
    if (!open) return kLxWaveInvalidHandle;
    return static_cast<int>(input != nullptr ? waveInReset(input) : waveOutReset(output));
}

int LxWinMMWaveDevice::GetPosition(uint32_t& frames) {
    if (!open) return kLxWaveInvalidHandle;
    MMTIME time{};
    time.wType = TIME_SAMPLES;
    MMRESULT result = input != nullptr ? waveInGetPosition(input, &time, sizeof time)
                                       : waveOutGetPosition(output, &time, sizeof time);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    // The driver may answer in another unit than asked for.
    if (time.wType != TIME_SAMPLES) return kLxWaveError;
    frames = time.u.sample;
    return kLxWaveOk;
}

int LxWinMMWaveDevice::Close() {
    if (!open) return kLxWaveInvalidHandle;
    MMRESULT result = input != nullptr ? waveInClose(input) : waveOutClose(output);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    open = false;
    // Headers the device logic did not unprepare (a failed unprepare) go now.
    ForgetPrepared();
    return kLxWaveOk;
}

void LxWinMMWaveDevice::ForgetPrepared() {
    for (auto& [native, header] : prepared) {
        header->driverData = nullptr;
        header->flags = 0;
        delete native;
    }
    prepared.clear();
}

bool LxWinMMWaveDevice::IsDone(const LxWaveHeader& header) const {
    const auto* native = static_cast<const WAVEHDR*>(header.driverData);
    if (native == nullptr) return false;
    // Written by the driver's own thread.
    return (*static_cast<const volatile DWORD*>(&native->dwFlags) & WHDR_DONE) != 0;
}

uint32_t LxWinMMWaveDevice::GetBytesRecorded(const LxWaveHeader& header) const {
    const auto* native = static_cast<const WAVEHDR*>(header.driverData);
    if (native == nullptr) return 0;
    return *static_cast<const volatile DWORD*>(&native->dwBytesRecorded);
}
