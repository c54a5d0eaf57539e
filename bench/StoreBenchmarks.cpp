// Whole-file operations of the engine, timed one at a time so that compare.py
// can run the same input through the tool a user would pick instead (sox,
// oggenc, oggdec, cp) right before or after. Each command prints one JSON object
// on stdout: the seconds of the timed operation and what it produced.
//
//   import FILE.wav [--denoise]   the controller's WAV importer into the store
//   compress FILE.wav             import (untimed), then CompressAllPages, then
//                                 play the compressed clip through GetNextPCMData
//   parallel-compress FILE.wav T  every page of the imported file encoded by one
//                                 page codec, and by T threads with a codec each;
//                                 checks that both give the same bytes and that
//                                 the store's compressed pages have their sizes
//   saveload MIB DIR              a store of MIB MiB of raw audio written with
//                                 WriteTo into DIR/saved.lxp, then read back with
//                                 ReadFrom into a new controller
//
// The store lives in the system temporary directory (TMPDIR).
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#include "BenchSignal.h"
#include "LxAudioCore.h"
#include "LxCodecVorbis.h"

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
        "\"decoded_bytes\": %lld, \"asserts\": %d}\n",
        compress.wall, compress.cpu, decode.wall, decode.cpu, pages, sizes[1], decoded, assertCount);
    return 0;
}

// The pages of a stored clip as the store holds them (one GetNextPCMData call
// of a page's size returns exactly that page).
std::vector<std::vector<unsigned char>> PagesOf(LxAudioClip& clip) {
    std::vector<std::vector<unsigned char>> pages;
    std::vector<unsigned char> buffer(176400);
    clip.SeekToBeginning();
    int got = 0;
    do {
        clip.GetNextPCMData(0, buffer.data(), static_cast<int>(buffer.size()), got, nullptr, false);
        if (got > 0) pages.emplace_back(buffer.begin(), buffer.begin() + got);
    } while (got > 0);
    return pages;
}

std::vector<unsigned char> EncodePage(LxCodecVorbis& codec, const std::vector<unsigned char>& page,
                                      std::vector<unsigned char>& scratch) {
    const int n = codec.Encode(reinterpret_cast<const short*>(page.data()), static_cast<int>(page.size()),
                               scratch.data(), static_cast<int>(scratch.size()));
    return std::vector<unsigned char>(scratch.begin(), scratch.begin() + std::max(n, 0));
}

int CommandParallelCompress(int argc, char** argv) {
    if (argc < 2) return Fail("parallel-compress needs a WAV file and a thread count");
    const int threads = std::max(1, std::atoi(argv[1]));
    LxAudioController controller;
    Timer importTimer;
    const int clipID = Import(controller, argv[0], false, importTimer);
    if (clipID < 1) return Fail("import failed");
    auto clip = controller.GetClip(clipID);
    const std::vector<std::vector<unsigned char>> pages = PagesOf(*clip);
    const int channels = clip->GetMaximumNumberOfChannels();

    // One codec, page after page: what the store's compressor does.
    std::vector<std::vector<unsigned char>> serial(pages.size());
    Timer serialTimer;
    {
        LxCodecVorbis codec(channels);
        std::vector<unsigned char> scratch(176400);
        for (size_t i = 0; i < pages.size(); ++i) serial[i] = EncodePage(codec, pages[i], scratch);
    }
    serialTimer.Stop();

    // T codecs on T threads, pages dealt out in turn.
    std::vector<std::vector<unsigned char>> parallel(pages.size());
    Timer parallelTimer;
    {
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                LxCodecVorbis codec(channels);
                std::vector<unsigned char> scratch(176400);
                for (size_t i = static_cast<size_t>(t); i < pages.size(); i += static_cast<size_t>(threads)) {
                    parallel[i] = EncodePage(codec, pages[i], scratch);
                }
            });
        }
        for (std::thread& w : workers) w.join();
    }
    parallelTimer.Stop();
    const bool identical = serial == parallel;

    // The store's own compressor must have written pages of the same sizes.
    controller.CompressAllPages(nullptr);
    bool sameAsStore = true;
    size_t index = 0;
    for (const LxPageRange& range : clip->GetPageRanges()) {
        for (int page = range.startPage; page <= range.endPage && index < serial.size(); page += 36, ++index) {
            LxPCMData record;
            controller.GetAudioFile()->ReadPageHeader(page, record);
            sameAsStore = sameAsStore && record.codec == 2 &&
                          record.dataRange.Size() == static_cast<int>(serial[index].size());
        }
    }
    sameAsStore = sameAsStore && index == serial.size();

    std::printf(
        "{\"op\": \"parallel-compress\", \"threads\": %d, \"pages\": %zu, \"serial_seconds\": %.6f, "
        "\"parallel_seconds\": %.6f, \"identical\": %s, \"sizes_match_store\": %s, \"asserts\": %d}\n",
        threads, pages.size(), serialTimer.wall, parallelTimer.wall, identical ? "true" : "false",
        sameAsStore ? "true" : "false", assertCount);
    return identical && sameAsStore ? 0 : 1;
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

    int sizes[5] = {};
    loaded.GetAudioFile()->GetMemberSizes(sizes);
    long long storeBytes = 0;
    for (int s : sizes) storeBytes += s;
    std::printf(
        "{\"op\": \"saveload\", \"write_seconds\": %.6f, \"write_cpu_seconds\": %.6f, \"read_seconds\": %.6f, "
        "\"read_cpu_seconds\": %.6f, \"store_bytes\": %lld, \"asserts\": %d}\n",
        write.wall, write.cpu, read.wall, read.cpu, storeBytes, assertCount);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    LxSetAssertHandler(CountAssert);
    if (argc < 2) {
        std::fprintf(stderr, "usage: LxBenchTool import|compress|parallel-compress|saveload ARGS\n");
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
    } else {
        std::fprintf(stderr, "LxBenchTool: unknown command %s\n", command.c_str());
    }
    if (result == 0 && assertCount > 0) result = 3;
    return result;
}
