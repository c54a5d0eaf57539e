#include "LxPublic/wave/LxWaveDriver.h"

#include <cstdlib>
#include <cstring>
#include "LxPublic/wave/LxSimulatedWaveDriver.h"
#if defined(_WIN32)
#include "LxWinMMWaveDriver.h"
#elif defined(LX_HAVE_ALSA)
#include "LxAlsaWaveDriver.h"
#endif

LxWaveDriver::~LxWaveDriver() = default;

LxWaveDriver* LxWaveDriver::Find(const char* name) {
    if (name == nullptr) return nullptr;
    if (std::strcmp(name, "simulated") == 0) return &LxSimulatedWaveDriver::Instance();
#if defined(_WIN32)
    if (std::strcmp(name, "winmm") == 0) return &LxWinMMWaveDriver::Instance();
#elif defined(LX_HAVE_ALSA)
    if (std::strcmp(name, "alsa") == 0) return &LxAlsaWaveDriver::Instance();
#endif
    return nullptr;
}

LxWaveDriver& LxWaveDriver::Current() {
    // An unknown name falls back to the platform's driver.
    if (LxWaveDriver* chosen = Find(std::getenv("LXAUDIO_WAVE_DRIVER"))) return *chosen;
#if defined(_WIN32)
    return LxWinMMWaveDriver::Instance();
#elif defined(LX_HAVE_ALSA)
    return LxAlsaWaveDriver::Instance();
#else
    return LxSimulatedWaveDriver::Instance();
#endif
}
