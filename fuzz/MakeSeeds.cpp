// Writes the seed corpora of the fuzz targets into DIR/{wav,store,directory,vorbis}:
// small valid inputs of every kind each target reads, made by the engine itself.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>
#include "FuzzDirectoryInput.h"
#include "LxAudioController.h"
#include "LxAudioEditableClip.h"
#include "LxCodecVorbis.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxMemoryStream.h"

namespace fs = std::filesystem;

namespace {

void Put(std::vector<uint8_t>& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void Save(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

double Tone(int frame, int channel) { return 0.5 * std::sin(frame * (0.03 + 0.01 * channel)); }

// A RIFF WAVE file of frames frames of a tone in the given encoding.
std::vector<uint8_t> Wav(uint16_t tag, int channels, uint32_t rate, int bits, int frames) {
    std::vector<uint8_t> data;
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            const double x = Tone(f, c);
            if (tag == 3) {
                float v = static_cast<float>(x);
                uint32_t u;
                std::memcpy(&u, &v, 4);
                Put(data, u, 4);
            } else if (bits == 8) {
                data.push_back(static_cast<uint8_t>(128 + std::lround(x * 127)));
            } else {
                const auto v = static_cast<int32_t>(std::llround(x * static_cast<double>((int64_t{1} << (bits - 1)) - 1)));
                Put(data, static_cast<uint32_t>(v), bits / 8);
            }
        }
    }
    std::vector<uint8_t> fmt;
    Put(fmt, tag, 2);
    Put(fmt, static_cast<uint32_t>(channels), 2);
    Put(fmt, rate, 4);
    Put(fmt, rate * static_cast<uint32_t>(channels * bits / 8), 4);
    Put(fmt, static_cast<uint32_t>(channels * bits / 8), 2);
    Put(fmt, static_cast<uint32_t>(bits), 2);
    if (tag == 65534) {  // extensible: valid bits, channel mask, PCM sub-format
        Put(fmt, 22, 2);
        Put(fmt, static_cast<uint32_t>(bits), 2);
        Put(fmt, channels == 2 ? 3u : 4u, 4);
        const uint8_t pcmGuid[16] = {1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71};
        fmt.insert(fmt.end(), pcmGuid, pcmGuid + 16);
    }
    std::vector<uint8_t> out = {'R', 'I', 'F', 'F'};
    Put(out, static_cast<uint32_t>(4 + 8 + fmt.size() + 8 + data.size()), 4);
    out.insert(out.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    Put(out, static_cast<uint32_t>(fmt.size()), 4);
    out.insert(out.end(), fmt.begin(), fmt.end());
    out.insert(out.end(), {'d', 'a', 't', 'a'});
    Put(out, static_cast<uint32_t>(data.size()), 4);
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

std::vector<int16_t> Pcm(int frames, int channels) {
    std::vector<int16_t> pcm;
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) pcm.push_back(static_cast<int16_t>(std::lround(Tone(f, c) * 20000)));
    }
    return pcm;
}

int Record(LxAudioController& controller, int frames, int channels) {
    std::vector<int16_t> pcm = Pcm(frames, channels);
    auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
    clip->AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), static_cast<int>(pcm.size() * 2),
                        channels, 44100, 16, 1.0f);
    return clip->FinishAppendingPCMData(channels, 44100, 16, 1.0f);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    const fs::path root(argv[1]);
    for (const char* sub : {"wav", "store", "directory", "vorbis"}) fs::create_directories(root / sub);

    Save(root / "wav" / "mono16_44100.wav", Wav(1, 1, 44100, 16, 2205));
    Save(root / "wav" / "stereo16_48000.wav", Wav(1, 2, 48000, 16, 2400));
    Save(root / "wav" / "mono8_22050.wav", Wav(1, 1, 22050, 8, 1103));
    Save(root / "wav" / "stereo24_96000.wav", Wav(1, 2, 96000, 24, 4800));
    Save(root / "wav" / "mono32_8000.wav", Wav(1, 1, 8000, 32, 400));
    Save(root / "wav" / "float_44100.wav", Wav(3, 2, 44100, 32, 2205));
    Save(root / "wav" / "extensible24_44100.wav", Wav(65534, 2, 44100, 24, 2205));

    // A small project: two recordings and an edit saved as a third clip, saved
    // as it is and again with every page compressed (with its integrity record,
    // as is the directory form).
    LxAudioController controller;
    const int mono = Record(controller, 8820, 1);
    Record(controller, 4410, 2);
    auto edited = controller.GetClip(mono);
    LxAudioEditableClip editable(*edited);
    int deleted = 0;
    editable.Delete(1000, 3000, deleted, false);
    edited->WriteToAudioFile();
    LxMemoryStream plain;
    controller.WriteTo(&plain);
    controller.CompressAllPages(nullptr);
    LxMemoryStream compressed;
    controller.WriteVerifiedTo(&compressed);
    for (auto* s : {&plain, &compressed}) {
        std::vector<uint8_t> bytes(static_cast<size_t>(s->GetLength()));
        s->Seek(0, kLxSeekBegin);
        s->Read(bytes.data(), static_cast<int>(bytes.size()));
        Save(root / "store" / (s == &plain ? "project.lxp" : "compressed.lxp"), bytes);
    }

    LxFile dir = LxFileUtil::CreateUniqueTempDir("LxFuzzSeed");
    controller.WriteVerifiedTo(dir, false, nullptr);
    std::vector<uint8_t> packed;
    for (uint8_t selector : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 240}) {
        const fs::path file = fs::path(dir.GetPath().str()) / fuzz::DirectoryFileName(selector);
        if (!fs::exists(file)) continue;
        std::vector<uint8_t> bytes = ReadFile(file);
        if (bytes.size() > 65535) {
            std::fprintf(stderr, "seed file %s too large\n", file.string().c_str());
            return 1;
        }
        fuzz::AppendDirectoryFile(packed, selector, bytes);
    }
    LxFileUtil::DeleteDirectory(dir, true);
    Save(root / "directory" / "project.dir", packed);

    // Stored Vorbis pages; the first byte tells the target the channels and the claimed PCM length.
    for (int channels : {1, 2}) {
        for (int steps : {1, 8}) {
            const int pcmBytes = steps * 11024 / (2 * channels) * (2 * channels);
            std::vector<int16_t> pcm = Pcm(pcmBytes / (2 * channels), channels);
            LxCodecVorbis codec(channels);
            std::vector<uint8_t> out(1 + 200000);
            const int n = codec.Encode(pcm.data(), pcmBytes, out.data() + 1, 200000);
            if (n <= 0) return 1;
            out[0] = static_cast<uint8_t>((channels - 1) | (steps << 1));
            out.resize(static_cast<size_t>(n) + 1);
            Save(root / "vorbis" / ("page_" + std::to_string(channels) + "ch_" + std::to_string(steps) + ".bin"), out);
        }
    }
    return 0;
}
