// The tool on sound devices: recording and playing through ALSA's file plugin
// (a microphone read from a file, a loudspeaker written to one), the device
// list, and devices that do not start.
#include <signal.h>
#include <nlohmann/json.hpp>
#include "CliTestSupport.h"

using nlohmann::json;

namespace {

class CliDeviceTest : public CliTest {
protected:
    // An ALSA configuration whose default PCM reads in.raw and writes out.raw.
    std::vector<std::string> AlsaFiles() {
        CliFiles::Write(files.Path("asound.conf"), Bytes("pcm.!default { type file  slave.pcm { type null }  file \"" +
                                                         files.Path("out.raw") + "\"  infile \"" +
                                                         files.Path("in.raw") + "\"  format \"raw\" }\n"));
        return {"ALSA_CONFIG_PATH=" + files.Path("asound.conf"), "LXAUDIO_WAVE_DRIVER=alsa"};
    }
    static std::vector<uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }
    static std::vector<uint8_t> Raw(const std::vector<int16_t>& samples) {
        std::vector<uint8_t> bytes(samples.size() * 2);
        std::memcpy(bytes.data(), samples.data(), bytes.size());
        return bytes;
    }
};

// A project saved in one stream whose "raw.lxa" holds rawBytes of unreferenced
// audio (a hole: the file is sparse and costs no disk), five reserved silent
// pages and no clip: a store close to the 2 GiB a member may hold.
void WriteNearlyFullProject(const std::string& path, int64_t rawBytes) {
    auto le32 = [](std::vector<uint8_t>& out, int64_t v) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i)));
    };
    std::vector<uint8_t> head, tail;
    le32(head, rawBytes);
    le32(tail, 0);    // enc.lxa
    le32(tail, 180);  // pcm.lxa: the reserved silence
    for (int page = 0; page < 5; ++page)
        for (int64_t field : {3, 176400, 0, 0, 0, 0, 1, 44100, 16}) le32(tail, field);
    for (int64_t field : {0, 4, 0}) le32(tail, field);  // clip.lxa, map.lxa
    CliFiles::Write(path, head);
    std::filesystem::resize_file(path, static_cast<uintmax_t>(4 + rawBytes));
    std::ofstream out(path, std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(tail.data()), static_cast<std::streamsize>(tail.size()));
}

}  // namespace

TEST_F(CliDeviceTest, AFullStoreRefusesAnImportAndEndsARecordingThatIsThenSaved) {
    constexpr int64_t kLimit = 2147483647, kPage = 176400;  // a member's largest size; two seconds of mono
    struct Stamp {
        uintmax_t size;
        std::filesystem::file_time_type written;
        bool operator==(const Stamp&) const = default;
    };
    auto stamp = [this](const char* name) {
        return Stamp{std::filesystem::file_size(files.Path(name)), std::filesystem::last_write_time(files.Path(name))};
    };
    // Room for seven pages (14 s of mono).
    WriteNearlyFullProject(files.Path("full.lxp"), kLimit - 7 * kPage - 100);
    const Stamp before = stamp("full.lxp");

    // 20 s of stereo does not fit: refused as a whole, the project as it was.
    CliFiles::WriteWav(files.Path("long.wav"), Ramp(20 * 44100, 2), 2, 44100);
    CliResult imported = cli.Run({"-q", "import", "full.lxp", "long.wav"});
    ExpectOneErrorLine(imported, "lxaudio: cannot import 'long.wav': it does not fit in the project's store");
    EXPECT_NE(imported.err.find("the store is full: raw.lxa would pass 2 GiB"), std::string::npos) << imported.err;
    EXPECT_TRUE(stamp("full.lxp") == before);

    // Less than ten seconds of room: a recording is refused, saying why.
    WriteNearlyFullProject(files.Path("fuller.lxp"), kLimit - 4 * kPage - 100);
    CliFiles::WriteWav(files.Path("voice.wav"), Ramp(20 * 44100, 1, 3), 1, 44100);
    const std::vector<std::string> microphone = {"LXAUDIO_WAVE_DRIVER=simulated",
                                                 "LXAUDIO_SIMULATED_INPUT=" + files.Path("voice.wav")};
    CliResult refused = cli.Run({"record", "fuller.lxp"}, microphone);
    ExpectOneErrorLine(refused, "lxaudio: cannot record into project 'fuller.lxp': the project's store is full "
                                "(2 GiB of raw audio); compress and compact it to record more");

    // A recording stops about ten seconds before the store is full, says why,
    // and saves what it has. The save writes the whole 2 GiB project out (no
    // longer sparse): skipped on a disk without room for it.
    const std::filesystem::space_info space = std::filesystem::space(files.Dir());
    if (space.available < (uintmax_t{6} << 30)) GTEST_SKIP() << "the save needs 2 GiB of disk";
    CliResult recorded = cli.Run({"record", "full.lxp"}, microphone);
    ASSERT_EQ(recorded.exitCode, 0) << recorded.err;
    EXPECT_NE(recorded.err.find("lxaudio: recording stopped: the project's store is full (2 GiB of raw audio); "
                                "compress and compact it to record more; saving what was recorded"),
              std::string::npos)
        << recorded.err;
    EXPECT_NE(recorded.out.find("(stopped early: the project's store is full)"), std::string::npos) << recorded.out;
    ASSERT_EQ(ClipIDs(recorded.out, "recorded"), std::vector<int>{1});
    // The saved project opens undamaged, with the recording; no journal waits.
    CliResult info = cli.Run({"info", "full.lxp"});
    EXPECT_EQ(info.exitCode, 0) << info.err;
    EXPECT_EQ(info.err, "");
    EXPECT_NE(info.out.find("integrity verified"), std::string::npos) << info.out;
    const std::vector<int32_t> samples = Exported("full.lxp", 1);
    EXPECT_GE(samples.size(), size_t{4} * 44100);
    EXPECT_LE(samples.size(), size_t{7} * 88200);
    const std::vector<int16_t> voice = Ramp(20 * 44100, 1, 3);
    EXPECT_EQ(samples, Wide({voice.begin(), voice.begin() + static_cast<long>(samples.size())}));
    std::filesystem::remove(files.Path("full.lxp"));
}

TEST_F(CliDeviceTest, RecordingKeepsWhatTheDeviceCaptured) {
#ifdef _WIN32
    GTEST_SKIP() << "records from ALSA's file plugin (Linux only)";
#endif
    const std::vector<std::string> env = AlsaFiles();
    const std::vector<int16_t> voice = Ramp(88200, 1, 4);
    CliFiles::Write(files.Path("in.raw"), Raw(voice));
    Ok({"new", "rec.lxp"});

    CliResult r = cli.Run({"record", "rec.lxp", "--seconds", "0.5"}, env);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(ClipIDs(r.out, "recorded"), std::vector<int>{1});
    EXPECT_NE(r.out.find("saved rec.lxp"), std::string::npos);
    // The recording is the microphone's signal, sample for sample: at least the
    // buffers counted before the stop (100 ms each).
    std::vector<int32_t> recorded = Exported("rec.lxp", 1);
    ASSERT_GE(recorded.size(), 4u * 4410);
    recorded.resize(std::min(recorded.size(), voice.size()));
    EXPECT_EQ(recorded, Wide({voice.begin(), voice.begin() + static_cast<long>(recorded.size())}));
}

TEST_F(CliDeviceTest, RecordingWithoutAudioEndsCleanlyAndSavesNothing) {
    Ok({"new", "rec.lxp"});
    const std::vector<uint8_t> before = CliFiles::Read(files.Path("rec.lxp"));
    // The simulated microphone never delivers: the wait ends after the length
    // asked for plus a grace period, or at once on Ctrl-C.
    CliResult timed = cli.Run({"record", "rec.lxp", "--seconds", "0.1"}, {"LXAUDIO_WAVE_DRIVER=simulated"});
    EXPECT_EQ(timed.exitCode, 1);
    EXPECT_NE(timed.err.find("lxaudio: nothing was recorded: the device delivered no audio"), std::string::npos)
        << timed.err;
    pid_t pid = cli.Start({"record", "rec.lxp"}, {"LXAUDIO_WAVE_DRIVER=simulated"});
    ASSERT_TRUE(cli.WaitForError("press Enter or Ctrl-C"));
    // While it records, the project is not open to other commands.
    CliRun other(files.Dir() + "/other");
    std::filesystem::create_directory(other.Dir());
    CliResult busy = other.Run({"info", "../rec.lxp"});
    EXPECT_EQ(busy.exitCode, 1);
    EXPECT_EQ(busy.err, "lxaudio: project in use '../rec.lxp': another lxaudio command is working on it; "
                        "try again when it has finished\n");
#ifdef _WIN32
    // No Ctrl-C can be sent to it here: ended hard, it saves nothing all the same.
    cli.Kill(pid);
    cli.Wait(pid);
    EXPECT_EQ(CliFiles::Read(files.Path("rec.lxp")), before);
    GTEST_SKIP() << "stopping a recording with Ctrl-C needs POSIX signals";
#else
    kill(pid, SIGINT);
    CliResult interrupted = cli.Wait(pid);
    EXPECT_EQ(interrupted.exitCode, 1);
    EXPECT_NE(interrupted.err.find("nothing was recorded"), std::string::npos) << interrupted.err;
    EXPECT_EQ(CliFiles::Read(files.Path("rec.lxp")), before);
#endif
}

TEST_F(CliDeviceTest, PlayingSendsThePortionToTheDevice) {
#ifdef _WIN32
    GTEST_SKIP() << "plays into ALSA's file plugin (Linux only)";
#endif
    const std::vector<std::string> env = AlsaFiles();
    CliFiles::Write(files.Path("in.raw"), {});
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> music = Ramp(44100, 2, 6);
    ImportPcm("p.lxp", "music.wav", music, 2);

    CliResult r = cli.Run({"play", "p.lxp", "1", "--from", "250", "--to", "750"}, env);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("played clip 1: 0.500 s of 0.500 s"), std::string::npos) << r.out;
    // The device got frames 11025 .. 33074 first (anything after is the device's padding).
    std::vector<uint8_t> played = CliFiles::Read(files.Path("out.raw"));
    played.resize(std::min<size_t>(played.size(), 4 * 22050));
    EXPECT_EQ(played, Raw({music.begin() + 2 * 11025, music.begin() + 2 * 33075}));

    EXPECT_EQ(cli.Run({"play", "p.lxp", "1", "--from", "2s"}, env).exitCode, 2);

    // A default device that cannot be opened: one clear line, no hang.
    CliFiles::Write(files.Path("asound.conf"), Bytes("pcm.!default { type hw card 97 }\n"));
    CliResult dead = cli.Run({"play", "p.lxp", "1"}, env);
    EXPECT_EQ(dead.exitCode, 1);
    EXPECT_NE(dead.err.find("lxaudio: cannot play clip 1:"), std::string::npos) << dead.err;
}

TEST_F(CliDeviceTest, DevicesListsTheCaptureSources) {
    CliResult r = cli.Run({"devices", "--json"}, {"LXAUDIO_WAVE_DRIVER=simulated"});
    ASSERT_EQ(r.exitCode, 0);
    json simulated = json::parse(r.out);
    ASSERT_GE(simulated.size(), 1u);
    const json& device = simulated.back();
    EXPECT_EQ(device["id"].get<int>(), device["device"].get<int>() * 65536 + device["line"].get<int>());
    r = cli.Run({"devices"}, {"LXAUDIO_WAVE_DRIVER=simulated"});
    EXPECT_NE(r.out.find(simulated[0]["name"].get<std::string>()), std::string::npos) << r.out;
}
