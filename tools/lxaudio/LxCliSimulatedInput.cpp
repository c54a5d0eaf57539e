#include "LxCliSimulatedInput.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>
#include "LxAudioCore.h"
#include "LxCliAssertLog.h"
#include "LxCliFailure.h"
#include "LxPublic/wave/LxSimulatedWaveDriver.h"

namespace LxCliSimulatedInput {

long long Feed(LxCliAssertLog& log) {
    const char* file = std::getenv("LXAUDIO_SIMULATED_INPUT");
    if (file == nullptr || *file == '\0') return 0;
    const std::string driver = LxWaveDriver::Current().GetName();
    if (driver != "simulated") {
        std::fprintf(stderr,
                     "lxaudio: LXAUDIO_SIMULATED_INPUT is ignored: it feeds the simulated driver, and the %s driver "
                     "is in use (LXAUDIO_WAVE_DRIVER=simulated selects it)\n",
                     driver.c_str());
        return 0;
    }
    // The file goes through a store of its own, which converts any format the
    // importers read into the capture's.
    LxAudioController scratch;
    const LxFile source{LxString(file)};
    size_t mark = log.Mark();
    int id = -1;
    auto wav = scratch.GetWAVImporter(nullptr, nullptr, false);
    if (source.Exists() && wav->CanImport(source)) {
        id = wav->Import(source);
    } else {
        auto vorbis = scratch.GetNvVorbisImporter(nullptr, nullptr);
        if (source.Exists() && vorbis->CanImport(source)) id = vorbis->Import(source);
    }
    if (id < 1) {
        std::string why = log.Summary(mark);
        throw LxCliFailure("cannot read the simulated input", file,
                           why.empty() ? "not a WAV or Ogg Vorbis file that holds audio" : why);
    }
    auto clip = scratch.GetClip(id);
    clip->SetPortionToBePlayedBack(1, -1);
    std::vector<unsigned char> pcm;
    std::vector<unsigned char> chunk(1 << 16);
    for (;;) {
        int got = 0;
        clip->GetNextPCMData(1, chunk.data(), static_cast<int>(chunk.size()), got, nullptr, false);
        if (got <= 0) break;
        pcm.insert(pcm.end(), chunk.begin(), chunk.begin() + got);
    }
    LxSimulatedWaveDriver& simulated = LxSimulatedWaveDriver::Instance();
    simulated.SetSpeed(1.0);
    simulated.FeedInput(pcm.data(), pcm.size());
    return static_cast<long long>(pcm.size() / 2);
}

}  // namespace LxCliSimulatedInput
