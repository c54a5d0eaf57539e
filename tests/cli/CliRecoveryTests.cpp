// Recordings that outlive what goes wrong: a recording process killed at any
// moment, a disk that fills while recording, a save that fails afterwards; and
// what killed commands leave beside a project. The microphone is the simulated
// driver fed a known signal at real-time pace (LXAUDIO_SIMULATED_INPUT).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>
#include "CliTestSupport.h"
#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace fs = std::filesystem;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

class CliRecoveryTest : public CliTest {
protected:
    // A signal that never repeats and is never silent: every sample tells
    // where in the recording it lies.
    static std::vector<int16_t> Voice(double seconds, uint32_t seed = 2463534242u) {
        std::vector<int16_t> pcm(static_cast<size_t>(seconds * 44100));
        for (int16_t& sample : pcm) {
            seed ^= seed << 13;
            seed ^= seed >> 17;
            seed ^= seed << 5;
            sample = static_cast<int16_t>(static_cast<int>(seed % 20001) - 10000);
        }
        return pcm;
    }

    // The environment of a recording whose microphone delivers voice.
    std::vector<std::string> Microphone(const std::vector<int16_t>& voice) {
        CliFiles::WriteWav(files.Path("voice.wav"), voice, 1, 44100);
        return {"LXAUDIO_WAVE_DRIVER=simulated", "LXAUDIO_SIMULATED_INPUT=" + files.Path("voice.wav")};
    }

    // samples are the first samples of voice, every one of them.
    static void ExpectStartOf(const std::vector<int32_t>& samples, const std::vector<int16_t>& voice) {
        ASSERT_LE(samples.size(), voice.size());
        auto differ = std::mismatch(samples.begin(), samples.end(), voice.begin());
        EXPECT_TRUE(differ.first == samples.end())
            << "sample " << (differ.first - samples.begin()) << " of " << samples.size() << " differs";
    }

    static std::string LastLine(const std::string& text) {
        size_t end = text.size() > 0 && text.back() == '\n' ? text.size() - 1 : text.size();
        size_t start = text.rfind('\n', end == 0 ? 0 : end - 1);
        return text.substr(start == std::string::npos ? 0 : start + 1, end - (start == std::string::npos ? 0 : start + 1));
    }

    static int OurProcessID() {
#ifdef _WIN32
        return _getpid();
#else
        return static_cast<int>(getpid());
#endif
    }
};

constexpr const char* kRecorded = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";

}  // namespace

TEST_F(CliRecoveryTest, KilledRecordingIsRecoveredSampleForSample) {
    const std::vector<int16_t> voice = Voice(12);
    const std::vector<std::string> env = Microphone(voice);
    Ok({"new", "rec.lxp"});
    // A mono page holds 2 s of audio: the second page is half full at 3.0 s
    // and the third has just been stored at 4.1 s.
    const struct {
        const char* name;
        double seconds;
    } points[] = {{"within the first 200 ms", 0.1}, {"mid-page", 3.0}, {"just after a page", 4.1}, {"late", 9.0}};
    double largest = 0;
    for (const auto& point : points) {
        SCOPED_TRACE(point.name);
        pid_t pid = cli.Start({"-q", "record", "rec.lxp"}, env);
        ASSERT_TRUE(cli.WaitForError("recording from device"));
        const Clock::time_point announced = Clock::now();
        std::this_thread::sleep_until(announced + std::chrono::microseconds(static_cast<long>(point.seconds * 1e6)));
        cli.Kill(pid);
        const double elapsed = std::chrono::duration<double>(Clock::now() - announced).count();
        cli.Wait(pid);

        const std::string out = Ok({"recover", "rec.lxp"});
        const std::vector<int> ids = ClipIDs(out, "recovered");
        double recovered = 0;
        if (ids.empty()) {
            EXPECT_EQ(out, "nothing to recover for rec.lxp\n");
        } else {
            ASSERT_EQ(ids.size(), 1u) << out;
            const std::vector<int32_t> samples = Exported("rec.lxp", ids[0]);
            ExpectStartOf(samples, voice);
            recovered = static_cast<double>(samples.size()) / 44100.0;
        }
        const double lost = elapsed - recovered;
        largest = std::max(largest, lost);
        std::printf("[ kill point ] %-24s killed %.3f s after the start, %.3f s recovered, %.3f s lost\n",
                    point.name, elapsed, recovered, lost);
        std::fflush(stdout);  // before the next fork, which would write the buffer again
        EXPECT_LE(lost, 0.5);
        EXPECT_EQ(Ok({"recover", "rec.lxp", "--list"}), "no interrupted recordings of rec.lxp\n");
    }
    RecordProperty("largest_loss_ms", static_cast<int>(largest * 1000 + 0.5));
}

TEST_F(CliRecoveryTest, RecordingIntoANearlyFullDiskStopsItselfWithEverySample) {
#ifdef _WIN32
    GTEST_SKIP() << "needs a small file system of its own (a tmpfs mounted on Linux)";
#else
    const std::string disk = files.Path("disk");
    fs::create_directory(disk);
    if (std::system(("mount -t tmpfs -o size=8m lxaudio-test " + disk + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "mounting a small tmpfs was refused (it needs root)";
    struct Unmount {
        std::string dir;
        ~Unmount() { (void)std::system(("umount -l " + dir).c_str()); }
    } unmount{disk};

    const std::vector<int16_t> voice = Voice(30);
    const std::vector<std::string> env = Microphone(voice);
    Ok({"new", "disk/rec.lxp"});
    // About 4 MiB left: room for a few seconds of recording and its save.
    const auto available = fs::space(disk).available;
    CliFiles::Write(disk + "/filler", std::vector<uint8_t>(static_cast<size_t>(available - (4u << 20)), 0x5a));

    CliResult r = cli.Run({"record", "disk/rec.lxp", "--seconds", "60"}, env);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("lxaudio: recording stopped: the disk is nearly full"), std::string::npos) << r.err;
    EXPECT_EQ(ClipIDs(r.out, "recorded"), std::vector<int>{1}) << r.out;
    // Everything the meter counted is in the project, the fed signal exactly.
    int counted = 0;
    for (size_t at = r.err.find("recording: "); at != std::string::npos; at = r.err.find("recording: ", at + 1))
        counted = std::max(counted, std::atoi(r.err.c_str() + at + 11));
    const std::vector<int32_t> samples = Exported("disk/rec.lxp", 1);
    EXPECT_GE(samples.size(), static_cast<size_t>(counted) * 44100) << r.err;
    EXPECT_LT(samples.size(), 60u * 44100);
    ExpectStartOf(samples, voice);
    EXPECT_EQ(Ok({"recover", "disk/rec.lxp", "--list"}), "no interrupted recordings of disk/rec.lxp\n");
#endif
}

TEST_F(CliRecoveryTest, RecordingWhoseSaveFailsIsKeptForRecover) {
#ifdef _WIN32
    GTEST_SKIP() << "makes the save fail with a file size limit (POSIX RLIMIT_FSIZE)";
#else
    const std::vector<int16_t> voice = Voice(1.5);
    const std::vector<std::string> env = Microphone(voice);
    Ok({"new", "rec.lxp"});
    // Older audio compressed: the store's files stay small one by one, but the
    // project file holds them all.
    CliFiles::WriteWav(files.Path("old.wav"), Voice(10, 7), 1, 44100);
    Ok({"-q", "import", "rec.lxp", "old.wav"});
    Ok({"-q", "compress", "rec.lxp"});
    const long encoded = json::parse(Ok({"info", "rec.lxp", "--json"}))["store"]["enc"].get<long>();
    const long limit = std::max<long>(encoded, static_cast<long>(voice.size()) * 2) + 16384;
    ASSERT_GT(encoded + 44100 * 2, limit) << "the project must outgrow the limit once recorded into";
    const std::vector<uint8_t> before = CliFiles::Read(files.Path("rec.lxp"));

    CliResult r = cli.Run({"-q", "record", "rec.lxp", "--seconds", "1"}, env, limit);
    EXPECT_EQ(r.exitCode, 1);
    const std::string line = LastLine(r.err);
    EXPECT_EQ(line.rfind("lxaudio: cannot save project 'rec.lxp': ", 0), 0u) << r.err;
    EXPECT_NE(line.find("; the recording ("), std::string::npos) << line;
    EXPECT_NE(line.find(") is kept: 'lxaudio recover rec.lxp' adds it to the project once it can be saved"),
              std::string::npos)
        << line;
    EXPECT_EQ(CliFiles::Read(files.Path("rec.lxp")), before);

    // Every other command says so, in one line, and still works.
    CliResult info = cli.Run({"info", "rec.lxp", "--json"});
    ASSERT_EQ(info.exitCode, 0);
    EXPECT_TRUE(std::regex_match(info.err, std::regex(std::string(R"(lxaudio: 1 interrupted recording of rec\.lxp \(\d+\.\d{3} s, recorded )") +
                                                      kRecorded + R"(\) is not in the project; 'lxaudio recover rec\.lxp' adds it to the project\n)")))
        << info.err;
    const json interrupted = json::parse(info.out)["interruptedRecordings"];
    ASSERT_EQ(interrupted.size(), 1u) << info.out;
    EXPECT_EQ(interrupted[0]["ended"], true);
    EXPECT_EQ(interrupted[0]["readable"], true);
    const int frames = interrupted[0]["frames"].get<int>();
    EXPECT_GE(frames, 44100);

    const std::string list = Ok({"recover", "rec.lxp", "--list"});
    EXPECT_TRUE(std::regex_match(list, std::regex(std::string(R"(interrupted recordings of rec\.lxp \(in \.rec\.lxp\.work\):
  recorded                  length  state
  )") + kRecorded + R"( +\d+\.\d{3} s  ended, not saved in the project
'lxaudio recover rec\.lxp' adds it to the project
)")))
        << list;

    // Out as a WAV file without opening the project, then into the project.
    const std::string written = Ok({"-q", "recover", "rec.lxp", "--export", "saved"});
    std::smatch file;
    ASSERT_TRUE(std::regex_search(written, file, std::regex(R"(wrote (saved/rec-recorded-[-0-9.]+\.wav): (\d+) frames)")))
        << written;
    EXPECT_EQ(std::stoi(file[2]), frames);
    const WavData wav = CliFiles::ReadWav(files.Path(file[1]));
    EXPECT_EQ(wav.channels, 1);
    EXPECT_EQ(wav.rate, 44100);
    EXPECT_EQ(wav.Frames(), frames);
    ExpectStartOf(wav.samples, voice);

    const std::string out = Ok({"recover", "rec.lxp"});
    EXPECT_TRUE(std::regex_search(out, std::regex("^recovered clip 2: " + std::to_string(frames) +
                                                  R"( frames \(\d+\.\d{3} s\), recorded )" + kRecorded + "\nsaved rec.lxp\n$")))
        << out;
    EXPECT_EQ(Exported("rec.lxp", 2), wav.samples);
    CliResult after = cli.Run({"info", "rec.lxp"});
    EXPECT_EQ(after.err, "");
    EXPECT_FALSE(fs::exists(files.Path(".rec.lxp.work")));
#endif
}

TEST_F(CliRecoveryTest, LeftoversOfKilledCommandsGoWithTheNextCommand) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> a = Ramp(44100, 1);
    ImportPcm("p.lxp", "a.wav", a, 1);
    CliFiles::WriteWav(files.Path("b.wav"), Ramp(60000, 1, 3), 1, 44100);
    // An import killed in its save leaves its working directory and its
    // half-written project behind.
    pid_t pid = cli.Start({"-q", "import", "p.lxp", "b.wav"}, {"LXAUDIO_TEST_SAVE_PAUSE_BYTES=20000"});
    ASSERT_TRUE(cli.WaitForError("save paused"));
    cli.Kill(pid);
    cli.Wait(pid);
    // What is in the test's folder, and one "working directory" per directory in .p.lxp.work.
    auto names = [&] {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(files.Dir())) {
            const std::string name = entry.path().filename().string();
            if (name == ".p.lxp.lock") continue;  // the project's lock on Windows, kept in place
            found.push_back(name);
            if (name == ".p.lxp.work") {
                for (const auto& inner : fs::directory_iterator(entry.path()))
                    if (inner.is_directory()) found.push_back("working directory");
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    };
    const std::vector<std::string> left = names();
    EXPECT_EQ(std::count(left.begin(), left.end(), "working directory"), 1);
    EXPECT_EQ(std::count_if(left.begin(), left.end(), [](const std::string& n) { return n.rfind(".p.lxp.saving-", 0) == 0; }), 1);
    // Part files of outputs: one whose writer was killed, one whose writer runs.
    const std::string dead = "mix.wav." + std::to_string(pid) + ".lxpart";
    const std::string live = "mix.wav." + std::to_string(OurProcessID()) + ".lxpart";
    CliFiles::Write(files.Path(dead), {1, 2, 3});
    CliFiles::Write(files.Path(live), {1, 2, 3});

    // The next command that changes the project clears it all, without a word.
    CliResult r = cli.Run({"-q", "compress", "p.lxp"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    const std::vector<std::string> after = names();
    EXPECT_EQ(after, (std::vector<std::string>{".cli-stderr", ".cli-stdout", ".tmp", "a.wav", "b.wav", live, "p.lxp"}));
    EXPECT_EQ(Exported("p.lxp", 1).size(), a.size());
}
