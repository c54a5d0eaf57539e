#include "LxWinMMWaveDriver.h"

#include <algorithm>
#include <string>
#include "LxWinMMWaveDevice.h"
#include "LxWinMMText.h"
#include "LxWinMMWaveMixer.h"

namespace {

WAVEFORMATEX NativeFormat(const LxWaveFormat& format) {
    WAVEFORMATEX native{};
    native.wFormatTag = WAVE_FORMAT_PCM;
    native.nChannels = static_cast<WORD>(format.channels);
    native.nSamplesPerSec = static_cast<DWORD>(format.framesPerSecond);
    native.wBitsPerSample = static_cast<WORD>(format.bitsPerSample);
    native.nBlockAlign = static_cast<WORD>(format.BlockAlign());
    native.nAvgBytesPerSec = static_cast<DWORD>(format.BytesPerSecond());
    native.cbSize = 0;
    return native;
}

}  // namespace

LxWinMMWaveDriver& LxWinMMWaveDriver::Instance() {
    static LxWinMMWaveDriver instance;
    return instance;
}

int LxWinMMWaveDriver::OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                                 std::unique_ptr<LxWaveDevice>& device) {
    WAVEFORMATEX native = NativeFormat(format);
    HWAVEIN handle = nullptr;
    MMRESULT result = waveInOpen(&handle, deviceIndex, &native, reinterpret_cast<DWORD_PTR>(event.GetNativeHandle()),
                                 0, CALLBACK_EVENT);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    device = std::make_unique<LxWinMMWaveDevice>(handle, nullptr);
    return kLxWaveOk;
}

int LxWinMMWaveDriver::OpenOutput(const LxWaveFormat& format, LxWaveEvent& event,
                                  std::unique_ptr<LxWaveDevice>& device) {
    WAVEFORMATEX native = NativeFormat(format);
    HWAVEOUT handle = nullptr;
    MMRESULT result = waveOutOpen(&handle, WAVE_MAPPER, &native,
                                  reinterpret_cast<DWORD_PTR>(event.GetNativeHandle()), 0, CALLBACK_EVENT);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    device = std::make_unique<LxWinMMWaveDevice>(nullptr, handle);
    return kLxWaveOk;
}

std::unique_ptr<LxWaveMixer> LxWinMMWaveDriver::OpenInputMixer(LxWaveDevice& input) {
    auto* device = dynamic_cast<LxWinMMWaveDevice*>(&input);
    if (device == nullptr || device->GetInputHandle() == nullptr) return nullptr;
    return LxWinMMWaveMixer::OpenForHandle(device->GetInputHandle());
}

std::unique_ptr<LxWaveMixer> LxWinMMWaveDriver::OpenInputMixer(unsigned deviceIndex) {
    return LxWinMMWaveMixer::OpenForDevice(deviceIndex);
}

void LxWinMMWaveDriver::GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) {
    devices.clear();
    UINT count = waveInGetNumDevs();
    for (UINT i = 0; i < count; ++i) {
        WAVEINCAPSW caps{};
        LxWaveInputDeviceInfo info;
        if (waveInGetDevCapsW(i, &caps, sizeof caps) == MMSYSERR_NOERROR) info.name = LxWinMMUtf8(caps.szPname);
        if (auto mixer = LxWinMMWaveMixer::OpenForDevice(i)) info.lines = mixer->GetRecordingLineNames();
        devices.push_back(std::move(info));
    }
}

int LxWinMMWaveDriver::GetOutputVolume(float& volume) {
    DWORD value = 0;
    MMRESULT result = waveOutGetVolume(reinterpret_cast<HWAVEOUT>(static_cast<UINT_PTR>(WAVE_MAPPER)), &value);
    if (result != MMSYSERR_NOERROR) return static_cast<int>(result);
    volume = static_cast<float>(value & 0xFFFFu) / 65535.0f;
    return kLxWaveOk;
}

int LxWinMMWaveDriver::SetOutputVolume(float volume) {
    auto level = static_cast<DWORD>(std::clamp(volume, 0.0f, 1.0f) * 65535.0f + 0.5f);
    return static_cast<int>(
        waveOutSetVolume(reinterpret_cast<HWAVEOUT>(static_cast<UINT_PTR>(WAVE_MAPPER)), level | (level << 16)));
}
