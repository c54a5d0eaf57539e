// Whole-file operations of the engine, timed one at a time so that compare.py
// can run the same input through the tool a user would pick instead (sox,
// oggenc, oggdec, cp) right before or after. Each command prints one JSON object
// on stdout: the seconds of the timed operation and what it produced.
//
//   import FILE.wav [--denoise]   the controller's WAV importer into the store
//   compress FILE.wav             import (untimed), then CompressAllPages, then
//                                 play the compressed clip through GetNextPCMData
//   parallel-compress FILE.wav T  import (untimed), then CompressAllPagesInParallel
//                                 on T threads; compress and this print hashes of
//                                 "enc.lxa" and "pcm.lxa", which must be equal
//   saveload MIB DIR              a store of MIB MiB of raw audio written with
//                                 WriteTo into DIR/saved.lxp, then read back with
//                                 ReadFrom into a new controller; then the same
//                                 with WriteVerifiedTo and ReadVerifiedFrom
//   capture SECONDS [SPEED]       a recording of that length on the simulated
//                                 wave driver at SPEED x real time (0: instant); peak RSS
//   long-project HOURS OUT.lxp [DISTINCT]
//                                 a project of HOURS hours of mono narration, every
//                                 page Vorbis, saved verified as lxaudio saves it:
//                                 DISTINCT pages (30 by default) are encoded once and
//                                 copied in their stored form over and over; clip 1
//                                 is the whole length, clips 2 and 3 ten minutes and
//                                 one minute of it
//
// The store lives in the system temporary directory (TMPDIR).
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#include "BenchSignal.h"
#include "LxAudioCore.h"
#include "LxPublic/wave/LxSimulatedWaveDriver.h"

namespace {

using Clock = std::chrono::steady_clock;

// CPU time of the whole process (every thread, user and system), in seconds.
double ProcessCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

// Wall-clock and CPU time of one operation. CPU time is what the comparison
// relies on when other jobs share the machine; wall-clock is what a user waits.
struct Timer {
    Clock::time_point wallStart = Clock::now();
    double cpuStart = ProcessCpuSeconds();
    double wall = 0.0;
    double cpu = 0.0;
    void Stop() {
        wall = std::chrono::duration<double>(Clock::now() - wallStart).count();
        cpu = ProcessCpuSeconds() - cpuStart;
    }
};

// Peak resident set of this process image: VmHWM, which (unlike the rusage
// maximum) does not count what the parent had before the exec.
long PeakRssKiB() {
    if (FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[256];
        long kib = -1;
        while (std::fgets(line, sizeof line, status) != nullptr) {
            if (std::sscanf(line, "VmHWM: %ld kB", &kib) == 1) break;
        }
        std::fclose(status);
        if (kib >= 0) return kib;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int assertCount = 0;
void CountAssert(const char* message, const char* sourceFile, int line) {
    if (assertCount++ < 5) std::fprintf(stderr, "assertion: %s (%s:%d)\n", message, sourceFile, line);
}

int Fail(const char* what) {
    std::fprintf(stderr, "LxBenchTool: %s\n", what);
    return 1;
}

// Imports a WAV file into the controller's store; the clip ID, or -1.
int Import(LxAudioController& controller, const char* path, bool denoise, Timer& timer) {
    auto importer = controller.GetWAVImporter(nullptr, nullptr, denoise);
    timer = Timer();
    const int clipID = importer->Import(LxFile(path));
    timer.Stop();
    return clipID;
}

// Plays a clip through GetNextPCMData as a playback device does (100 ms of
// 16-bit stereo per call); returns the bytes delivered.
long long PlayAll(LxAudioClip& clip) {
    std::vector<unsigned char> out(17640);
    clip.SeekToBeginning();
    long long total = 0;
    int got = 0;
    do {
        clip.GetNextPCMData(2, out.data(), static_cast<int>(out.size()), got, nullptr, false);
        total += got;
    } while (got > 0);
    return total;
}

int CommandImport(int argc, char** argv) {
    if (argc < 1) return Fail("import needs a WAV file");
    const bool denoise = argc > 1 && std::strcmp(argv[1], "--denoise") == 0;
    Timer timer;
    long long bytes = 0;
    int clipID = -1;
    {
        LxAudioController controller;
        clipID = Import(controller, argv[0], denoise, timer);
        if (clipID < 1) return Fail("import failed");
        bytes = controller.GetClip(clipID)->WorthInBytes();
    }
    std::printf(
        "{\"op\": \"import\", \"seconds\": %.6f, \"cpu_seconds\": %.6f, \"clip_bytes\": %lld, "
        "\"max_rss_kib\": %ld, \"asserts\": %d}\n",
        timer.wall, timer.cpu, bytes, PeakRssKiB(), assertCount);
    return 0;
}

// FNV-1a of one member file of the controller's store, to tell whether two
// runs wrote the same bytes.
unsigned long long MemberHash(LxAudioController& controller, const char* member) {
    controller.GetAudioFile()->Flush();
    const LxFile file = controller.GetAudioFile()->GetDirectory().GetChild(member);
    std::FILE* in = std::fopen(file.GetPath().c_str(), "rb");
    unsigned long long hash = 1469598103934665603ULL;
    if (in == nullptr) return 0;
    std::vector<unsigned char> block(1 << 16);
    for (size_t n; (n = std::fread(block.data(), 1, block.size(), in)) > 0;) {
        for (size_t i = 0; i < n; ++i) hash = (hash ^ block[i]) * 1099511628211ULL;
    }
    std::fclose(in);
    return hash;
}

int CommandCompress(int argc, char** argv) {
    if (argc < 1) return Fail("compress needs a WAV file");
    LxAudioController controller;
    Timer importTimer;
    const int clipID = Import(controller, argv[0], false, importTimer);
    if (clipID < 1) return Fail("import failed");

    Timer compress;
    const int pages = controller.CompressAllPages(nullptr);
    compress.Stop();
    int sizes[5] = {};
    controller.GetAudioFile()->GetMemberSizes(sizes);

    auto clip = controller.GetClip(clipID);
    Timer decode;
    const long long decoded = PlayAll(*clip);
    decode.Stop();
    if (decoded != clip->WorthInBytes()) return Fail("decoded a wrong byte count");

    std::printf(
        "{\"op\": \"compress\", \"compress_seconds\": %.6f, \"compress_cpu_seconds\": %.6f, "
        "\"decode_seconds\": %.6f, \"decode_cpu_seconds\": %.6f, \"pages\": %d, \"enc_bytes\": %d, "
        "\"decoded_bytes\": %lld, \"enc_hash\": \"%016llx\", \"pcm_hash\": \"%016llx\", \"asserts\": %d}\n",
        compress.wall, compress.cpu, decode.wall, decode.cpu, pages, sizes[1], decoded,
        MemberHash(controller, "enc.lxa"), MemberHash(controller, "pcm.lxa"), assertCount);
    return 0;
}

int CommandParallelCompress(int argc, char** argv) {
    if (argc < 2) return Fail("parallel-compress needs a WAV file and a thread count");
    const int threads = std::max(1, std::atoi(argv[1]));
    LxAudioController controller;
    Timer importTimer;
    if (Import(controller, argv[0], false, importTimer) < 1) return Fail("import failed");

    Timer compress;
    const int pages = controller.GetAudioFile()->CompressAllPagesInParallel(threads, nullptr);
    compress.Stop();

    std::printf(
        "{\"op\": \"parallel-compress\", \"threads\": %d, \"seconds\": %.6f, \"cpu_seconds\": %.6f, "
        "\"pages\": %d, \"enc_hash\": \"%016llx\", \"pcm_hash\": \"%016llx\", \"asserts\": %d}\n",
        threads, compress.wall, compress.cpu, pages, MemberHash(controller, "enc.lxa"),
        MemberHash(controller, "pcm.lxa"), assertCount);
    return 0;
}

int CommandSaveLoad(int argc, char** argv) {
    if (argc < 2) return Fail("saveload needs a size in MiB and a directory");
    const long long wanted = std::atoll(argv[0]) * 1024LL * 1024LL;
    const LxFile saved = LxFile(argv[1]).GetChild("saved.lxp");

    LxAudioController controller;
    {
        // Ten seconds of stereo, varied per round so that no two pages are alike.
        std::vector<unsigned char> block = lxbench::Signal(5).Pcm16(441000, 44100, 2);
        auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
        for (long long appended = 0, round = 0; appended < wanted; appended += block.size(), ++round) {
            block[0] = static_cast<unsigned char>(round);
            block[1] = static_cast<unsigned char>(round >> 8);
            clip->AppendPCMData(block.data(), static_cast<int>(block.size()), 2, 44100, 16, 1.0f);
        }
        if (clip->FinishAppendingPCMData(2, 44100, 16, 1.0f) < 1) return Fail("could not build the store");
    }

    Timer write;
    bool written = false;
    {
        auto out = LxStreamUtil::CreateFileStreamReadWrite(saved, 2, 0x3f3f3f3f, 0x3f3f3f3f);
        written = out && controller.WriteTo(out.get());
    }
    write.Stop();
    if (!written) return Fail("WriteTo failed");

    LxAudioController loaded;
    Timer read;
    bool loadedOk = false;
    {
        auto in = LxStreamUtil::CreateFileStreamRead(saved);
        loadedOk = in && loaded.ReadFrom(in.get());
    }
    read.Stop();
    if (!loadedOk) return Fail("ReadFrom failed");
    std::list<int> ids;
    loaded.GetListOfClipIDs(ids);
    if (ids.size() != 1) return Fail("the loaded store has a wrong clip count");

    // The same with the integrity record: written after the members, checked on load.
    saved.Delete();
    Timer verifiedWrite;
    {
        auto out = LxStreamUtil::CreateFileStreamReadWrite(saved, 2, 0x3f3f3f3f, 0x3f3f3f3f);
        written = out && controller.WriteVerifiedTo(out.get());
    }
    verifiedWrite.Stop();
    if (!written) return Fail("WriteVerifiedTo failed");
    LxAudioController checked;
    LxAudioDamageReport report;
    Timer verifiedRead;
    {
        auto in = LxStreamUtil::CreateFileStreamRead(saved);
        loadedOk = in && checked.ReadVerifiedFrom(in.get(), report);
    }
    verifiedRead.Stop();
    if (!loadedOk || !report.verified) return Fail("ReadVerifiedFrom failed");

    int sizes[5] = {};
    loaded.GetAudioFile()->GetMemberSizes(sizes);
    long long storeBytes = 0;
    for (int s : sizes) storeBytes += s;
    std::printf(
        "{\"op\": \"saveload\", \"write_seconds\": %.6f, \"write_cpu_seconds\": %.6f, \"read_seconds\": %.6f, "
        "\"read_cpu_seconds\": %.6f, \"verified_write_seconds\": %.6f, \"verified_write_cpu_seconds\": %.6f, "
        "\"verified_read_seconds\": %.6f, \"verified_read_cpu_seconds\": %.6f, \"store_bytes\": %lld, "
        "\"asserts\": %d}\n",
        write.wall, write.cpu, read.wall, read.cpu, verifiedWrite.wall, verifiedWrite.cpu, verifiedRead.wall,
        verifiedRead.cpu, storeBytes, assertCount);
    return 0;
}


// Mono narration-like audio: phrases of a few seconds between pauses of room
// noise, syllables of four to six a second, voiced ones a glottal pitch with
// its harmonics shaped by three moving formants, unvoiced ones hiss. Vorbis
// then spends its bits as it would on a lecturer's voice, and no page is silent.
std::vector<unsigned char> NarrationPcm16(int frames) {
    constexpr double kRate = 44100.0;
    constexpr double kTwoPi = 6.283185307179586;
    uint32_t state = 2024u;
    auto uniform = [&state] {  // in [0, 1)
        state = state * 1664525u + 1013904223u;
        return static_cast<double>(state >> 8) / 16777216.0;
    };
    std::vector<unsigned char> out(static_cast<size_t>(frames) * 2);
    double phase = 0.0;
    double hiss = 0.0;
    int i = 0;
    while (i < frames) {
        // A phrase, then a pause.
        const int phraseEnd = std::min(frames, i + static_cast<int>((1.5 + 2.5 * uniform()) * kRate));
        const double basePitch = 105.0 + 30.0 * uniform();
        const int phraseStart = i;
        while (i < phraseEnd) {
            const int syllable = std::min(phraseEnd - i, static_cast<int>((0.16 + 0.09 * uniform()) * kRate));
            const bool voiced = uniform() < 0.8;
            const double f1 = 300.0 + 500.0 * uniform(), f2 = 900.0 + 1400.0 * uniform(), f3 = 2400.0 + 400.0 * uniform();
            const double loudness = 0.25 + 0.2 * uniform();
            // Harmonic weights for this syllable: a falling tilt times the formants.
            double weight[40];
            const int harmonics = 36;
            for (int k = 1; k <= harmonics; ++k) {
                const double f = basePitch * k;
                auto bump = [f](double centre, double width) {
                    const double d = (f - centre) / width;
                    return std::exp(-d * d);
                };
                weight[k] = (1.0 / k) * (0.15 + bump(f1, 120.0) + 0.7 * bump(f2, 180.0) + 0.35 * bump(f3, 250.0));
            }
            for (int n = 0; n < syllable; ++n, ++i) {
                const double t = static_cast<double>(i - phraseStart) / kRate;
                const double envelope = loudness * std::sin(3.141592653589793 * (n + 0.5) / syllable);
                // Intonation: a slow drift and a fall towards the phrase's end.
                const double pitch = basePitch * (1.0 + 0.06 * std::sin(kTwoPi * 0.7 * t)) *
                                     (1.0 - 0.12 * (i - phraseStart) / double(phraseEnd - phraseStart));
                phase += kTwoPi * pitch / kRate;
                if (phase > kTwoPi) phase -= kTwoPi;
                hiss = 0.6 * hiss + 0.4 * (2.0 * uniform() - 1.0);
                double x = 0.0;
                if (voiced) {
                    for (int k = 1; k <= harmonics; ++k) x += weight[k] * std::sin(k * phase);
                    x *= 0.5;
                } else {
                    x = 0.5 * ((2.0 * uniform() - 1.0) - hiss);
                }
                const double room = 0.002 * (2.0 * uniform() - 1.0);
                const double sample = std::clamp(std::round((envelope * x + room) * 32767.0), -32768.0, 32767.0);
                const auto s16 = static_cast<uint16_t>(static_cast<int16_t>(sample));
                out[2 * static_cast<size_t>(i)] = static_cast<unsigned char>(s16 & 0xFF);
                out[2 * static_cast<size_t>(i) + 1] = static_cast<unsigned char>(s16 >> 8);
            }
        }
        const int pauseEnd = std::min(frames, i + static_cast<int>((0.3 + 0.5 * uniform()) * kRate));
        for (; i < pauseEnd; ++i) {
            const double sample = std::round(0.002 * (2.0 * uniform() - 1.0) * 32767.0);
            const auto s16 = static_cast<uint16_t>(static_cast<int16_t>(sample));
            out[2 * static_cast<size_t>(i)] = static_cast<unsigned char>(s16 & 0xFF);
            out[2 * static_cast<size_t>(i) + 1] = static_cast<unsigned char>(s16 >> 8);
        }
    }
    return out;
}

// A long project made quickly: compressing hours of audio would take many
// CPU-minutes, so DISTINCT pages of narration are compressed once in a store of
// their own and copied, in their stored form (Vorbis data and thumbnail), into
// the project's store until it holds HOURS hours. The result is an ordinary
// store: consecutive Vorbis pages, clips that are page ranges over them, saved
// with WriteVerifiedTo exactly as lxaudio saves a project.
int CommandLongProject(int argc, char** argv) {
    if (argc < 2) return Fail("long-project needs a length in hours and an output file");
    const double hours = std::atof(argv[0]);
    const LxFile output(argv[1]);
    const int distinct = argc > 2 ? std::max(1, std::atoi(argv[2])) : 30;
    constexpr int kPageFrames = kLxMaxPageBytes / 2;  // a full mono page: two seconds
    const long long pages = std::max(1LL, std::llround(hours * 3600.0 * kLxFrameRate / kPageFrames));
    if (pages * kLxPageRecordBytes + kLxFirstOrdinaryPage > INT32_MAX) return Fail("too many pages for one store");
    Timer total;

    // The distinct pages, compressed by the store's own compressor.
    LxAudioController source;
    Timer encode;
    std::vector<int> sourcePages;
    {
        std::vector<unsigned char> pcm = NarrationPcm16(distinct * kPageFrames);
        auto clip = source.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
        clip->AppendPCMData(pcm.data(), static_cast<int>(pcm.size()), 1, kLxFrameRate, 16, 1.0f);
        if (clip->FinishAppendingPCMData(1, kLxFrameRate, 16, 1.0f) < 1) return Fail("could not store the narration");
        source.CompressAllPages(nullptr);
        for (const LxPageRange& range : clip->GetPageRanges()) {
            for (int page = range.startPage; page <= range.endPage; page += kLxPageRecordBytes) {
                LxPCMData record;
                if (!source.GetAudioFile()->ReadPageHeader(page, record) || record.codec != kLxPageCodecVorbis ||
                    record.pcmBytes != kLxMaxPageBytes)
                    return Fail("a narration page did not compress to a full Vorbis page");
                sourcePages.push_back(page);
            }
        }
    }
    encode.Stop();
    if (static_cast<int>(sourcePages.size()) != distinct) return Fail("the narration made a wrong page count");

    LxAudioController project;
    LxAudioFile& store = *project.GetAudioFile();
    Timer copy;
    int first = -1, last = -1;
    for (long long n = 0; n < pages; ++n) {
        const int made = source.GetAudioFile()->CopyPageTo(sourcePages[static_cast<size_t>(n % distinct)], store);
        if (made < 0 || (last >= 0 && made != last + kLxPageRecordBytes)) return Fail("a page copy failed");
        if (first < 0) first = made;
        last = made;
    }
    copy.Stop();

    // Clip 1: the whole length, one range. Clips 2 and 3: ten minutes from an
    // hour in (or from the start), and one minute from the middle.
    const LxAudioVolumeEffect unit(1.0f, 0.0f, 1.0f);
    auto storeClip = [&](long long firstIndex, long long count) {
        count = std::clamp(count, 1LL, pages - firstIndex);
        auto clip = project.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
        clip->AppendPageRange(LxPageRange(&store, unit, first + static_cast<int>(firstIndex) * kLxPageRecordBytes, 0,
                                          first + static_cast<int>(firstIndex + count - 1) * kLxPageRecordBytes,
                                          kLxMaxPageBytes));
        return clip->WriteToAudioFile();
    };
    const int whole = storeClip(0, pages);
    const int tenMinutes = storeClip(pages > 2100 ? 1800 : 0, 300);
    const int oneMinute = storeClip(pages / 2, 30);
    if (whole != 1 || tenMinutes != 2 || oneMinute != 3) return Fail("could not store the clips");
    const long long frames = project.GetClip(whole)->WorthInFrames();

    Timer save;
    bool written = false;
    {
        auto out = LxStreamUtil::CreateFileStreamReadWrite(output, kLxStreamWrite, kLxStreamBufferArgument,
                                                           kLxStreamBufferArgument);
        written = out && project.WriteVerifiedTo(out.get());
    }
    save.Stop();
    total.Stop();
    if (!written) return Fail("WriteVerifiedTo failed");
    int sizes[5] = {};
    store.GetMemberSizes(sizes);
    std::printf(
        "{\"op\": \"long-project\", \"hours\": %.3f, \"pages\": %lld, \"distinct_pages\": %d, \"frames\": %lld, "
        "\"seconds\": %.6f, \"cpu_seconds\": %.6f, \"encode_seconds\": %.6f, \"copy_seconds\": %.6f, "
        "\"save_seconds\": %.6f, \"project_bytes\": %lld, \"enc_bytes\": %d, \"pcm_bytes\": %d, "
        "\"max_rss_kib\": %ld, \"asserts\": %d}\n",
        hours, pages, distinct, frames, total.wall, total.cpu, encode.wall, copy.wall, save.wall,
        static_cast<long long>(output.GetLength()), sizes[1], sizes[2], PeakRssKiB(), assertCount);
    return 0;
}

}  // namespace

// A recording of SECONDS seconds through the capture pipeline on the simulated
// wave driver, at SPEED times real time (0: instant completion): the host's
// thread feeds the input in ten-second pieces, as a sound card would deliver
// it, and the reader and consumer threads store it.
int CommandCapture(int argc, char** argv) {
    if (argc < 1) return Fail("capture needs a length in seconds");
    const long long seconds = std::max(1LL, std::atoll(argv[0]));
    const double speed = argc > 1 ? std::atof(argv[1]) : 0.0;
    setenv("LXAUDIO_WAVE_DRIVER", "simulated", 1);
    LxSimulatedWaveDriver& driver = LxSimulatedWaveDriver::Instance();
    driver.ResetSimulation();
    driver.SetSpeed(speed);
    const long long bytesPerSecond = 88200;  // the capture format: 44.1 kHz 16-bit mono
    std::vector<unsigned char> piece = lxbench::Signal(3).Pcm16(10 * 44100, 44100, 1);

    LxAudioController controller;
    Timer timer;
    if (!controller.StartCapture(0, -1.0f, true, nullptr, nullptr)) return Fail("capture did not start");
    long long fed = 0;
    for (long long round = 0; fed < seconds * bytesPerSecond; ++round) {
        // The simulated driver keeps its input script until all of it was read:
        // a new piece only once the last one is in, or the script would grow to
        // the whole recording.
        if (driver.GetPendingInputBytes() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            continue;
        }
        piece[0] = static_cast<unsigned char>(round);
        const size_t n = static_cast<size_t>(std::min<long long>(static_cast<long long>(piece.size()),
                                                                 seconds * bytesPerSecond - fed));
        driver.FeedInput(piece.data(), n);
        fed += static_cast<long long>(n);
    }
    if (!driver.WaitUntilInputConsumed(600000)) return Fail("the input was not consumed");
    const int clipID = controller.StopCapture();
    timer.Stop();
    if (clipID < 1) return Fail("nothing was recorded");
    const long long bytes = controller.GetClip(clipID)->WorthInBytes();
    std::printf(
        "{\"op\": \"capture\", \"seconds\": %.6f, \"cpu_seconds\": %.6f, \"clip_bytes\": %lld, "
        "\"fed_bytes\": %lld, \"max_rss_kib\": %ld, \"asserts\": %d}\n",
        timer.wall, timer.cpu, bytes, fed, PeakRssKiB(), assertCount);
    return 0;
}

int main(int argc, char** argv) {
    LxSetAssertHandler(CountAssert);
    if (argc < 2) {
        std::fprintf(stderr, "usage: LxBenchTool import|compress|parallel-compress|saveload|capture|long-project ARGS\n");
        return 2;
    }
    const std::string command = argv[1];
    int result = 2;
    if (command == "import") {
        result = CommandImport(argc - 2, argv + 2);
    } else if (command == "compress") {
        result = CommandCompress(argc - 2, argv + 2);
    } else if (command == "parallel-compress") {
        result = CommandParallelCompress(argc - 2, argv + 2);
    } else if (command == "saveload") {
        result = CommandSaveLoad(argc - 2, argv + 2);
    } else if (command == "capture") {
        result = CommandCapture(argc - 2, argv + 2);
    } else if (command == "long-project") {
        result = CommandLongProject(argc - 2, argv + 2);
    } else {
        std::fprintf(stderr, "LxBenchTool: unknown command %s\n", command.c_str());
    }
    if (result == 0 && assertCount > 0) result = 3;
    return result;
}
