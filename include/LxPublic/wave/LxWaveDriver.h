#pragma once
// A sound-card driver: opens wave devices and their mixers, and lists the
// recording devices. Three exist: WinMM (Windows), ALSA (Linux) and a simulated
// one in memory (tests, hosts without a sound card). Current() gives the one
// in use: the platform's own, unless the environment variable
// LXAUDIO_WAVE_DRIVER names another ("winmm", "alsa", "simulated"). The
// variable is read on every call, so that a test may switch drivers.
#include <memory>
#include <vector>
#include "../LxPublicExport.h"
#include "../LxString.h"
#include "LxWaveDevice.h"
#include "LxWaveEvent.h"
#include "LxWaveFormat.h"
#include "LxWaveMixer.h"

// A recording device and the names of its source lines (possibly none).
struct LxWaveInputDeviceInfo {
    LxString name;
    std::vector<LxString> lines;
};

class LXPUBLIC_API LxWaveDriver {
public:
    virtual ~LxWaveDriver();

    virtual const char* GetName() const = 0;
    // Opens recording device deviceIndex; the driver sets event whenever a buffer is done.
    virtual int OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                          std::unique_ptr<LxWaveDevice>& device) = 0;
    // Opens the default playback device.
    virtual int OpenOutput(const LxWaveFormat& format, LxWaveEvent& event, std::unique_ptr<LxWaveDevice>& device) = 0;
    // The recording mixer of an open input device, or of recording device
    // deviceIndex; null when there is none.
    virtual std::unique_ptr<LxWaveMixer> OpenInputMixer(LxWaveDevice& input) = 0;
    virtual std::unique_ptr<LxWaveMixer> OpenInputMixer(unsigned deviceIndex) = 0;
    virtual void GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) = 0;
    // Volume of the default playback device, 0.0 to 1.0.
    virtual int GetOutputVolume(float& volume) = 0;
    virtual int SetOutputVolume(float volume) = 0;

    // The driver in use (see above).
    static LxWaveDriver& Current();
    // The driver of that name, or null when it does not exist on this platform.
    static LxWaveDriver* Find(const char* name);
};
