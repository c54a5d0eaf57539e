// The tool on whole projects: creating, importing, listing, compressing and
// compacting in both saved forms; damaged projects; saves cut off by a kill or
// a full disk; how failures and engine reports reach the user.
#include <csignal>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include "CliTestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

TEST_F(CliTest, NewImportInfoAndReopenInBothForms) {
    const std::vector<int16_t> mono = Ramp(66150, 1);
    const std::vector<int16_t> stereo = Ramp(44100, 2, 7);
    for (bool directory : {false, true}) {
        SCOPED_TRACE(directory ? "directory" : "file");
        const std::string project = directory ? "talk" : "talk.lxp";
        std::vector<std::string> create = {"new", project};
        if (directory) create.insert(create.begin(), "--dir");
        EXPECT_NE(Ok(create).find("created"), std::string::npos);
        EXPECT_EQ(directory, fs::is_directory(files.Path(project)));
        // A second `new` on the same path must not overwrite it.
        ExpectOneErrorLine(cli.Run({"new", project}), "lxaudio: cannot create project '" + project + "'");

        EXPECT_EQ(ImportPcm(project, "mono.wav", mono, 1), 1);
        EXPECT_EQ(ImportPcm(project, "stereo.wav", stereo, 2), 2);

        json info = json::parse(Ok({"info", project, "--json"}));
        EXPECT_EQ(info["form"], directory ? "directory" : "file");
        EXPECT_EQ(info["project"], project);
        auto clip = [](int id, int frames, double seconds, int channels, int page) {
            return json{{"id", id}, {"frames", frames}, {"seconds", seconds}, {"channels", channels}, {"silent", false},
                        {"ranges", {{{"startPage", page}, {"startOffset", 0}, {"endPage", page},
                                     {"endOffset", frames * 2 * channels}, {"frames", frames}, {"gain", 1.0}}}}};
        };
        EXPECT_EQ(info["clips"], json({clip(1, 66150, 1.5, 1, 180), clip(2, 44100, 1.0, 2, 216)}));
        // One page each besides the five reserved silent pages.
        EXPECT_EQ(info["pages"], json::parse(R"({"total": 7, "silent": 5, "raw": 2, "compressed": 0,
            "compressedShare": 0.0, "pcmBytesOfCompressedPages": 0, "encodedBytes": 0})"));
        EXPECT_EQ(info["store"]["raw"], 132300 + 176400);
        // Every command reopens the project from disk: the audio came back whole.
        EXPECT_EQ(Exported(project, 2), Wide(stereo));
        std::string text = Ok({"info", project});
        EXPECT_NE(text.find("pages    7: 5 reserved silent, 2 raw, 0 compressed"), std::string::npos) << text;
    }
}

TEST_F(CliTest, CompressThenCompactKeepsTheListedClips) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> tone = Ramp(88200, 1);
    const int a = ImportPcm("p.lxp", "a.wav", tone, 1);
    ImportPcm("p.lxp", "b.wav", Ramp(44100, 2), 2);
    const int edited = ResultClip(Ok({"edit", "p.lxp", std::to_string(a), "delete", "0", "500"}));
    ASSERT_EQ(edited, 3);

    // The pages are encoded side by side; the stored bytes do not depend on how many at once.
    fs::copy_file(files.Path("p.lxp"), files.Path("one.lxp"));
    Ok({"compress", "one.lxp", "--jobs", "1"});
    CliResult badJobs = cli.Run({"compress", "p.lxp", "--jobs", "-1"});
    EXPECT_NE(badJobs.exitCode, 0);
    EXPECT_EQ(badJobs.err.rfind("--jobs: Value -1 not in range 0 to 256\n", 0), 0u) << badJobs.err;
    std::string out = Ok({"compress", "p.lxp", "--jobs", "2"});
    EXPECT_EQ(CliFiles::Read(files.Path("p.lxp")), CliFiles::Read(files.Path("one.lxp")));
    // One page of the tone, one of the stereo clip; the edit added none.
    EXPECT_NE(out.find("compressed 2 pages"), std::string::npos) << out;
    json info = json::parse(Ok({"info", "p.lxp", "--json"}));
    EXPECT_EQ(info["pages"]["compressed"], 2);
    EXPECT_EQ(info["store"]["raw"], 0);  // nothing raw is referenced any more
    std::vector<int32_t> decoded = Exported("p.lxp", edited);

    out = Ok({"compact", "p.lxp", "--keep", std::to_string(edited)});
    EXPECT_NE(out.find("clip 3 -> clip 1"), std::string::npos) << out;
    EXPECT_NE(out.find("2 clips dropped"), std::string::npos) << out;
    json compacted = json::parse(Ok({"info", "p.lxp", "--json"}));
    ASSERT_EQ(compacted["clips"].size(), 1u);
    // The stereo page of clip b went with it.
    EXPECT_EQ(compacted["pages"]["total"], 6);
    EXPECT_EQ(Exported("p.lxp", 1), decoded);
    ExpectOneErrorLine(cli.Run({"compact", "p.lxp", "--keep", "9"}), "lxaudio: no clip 9 in project 'p.lxp'");
}

TEST_F(CliTest, DamagedProjectsGiveOneClearLineAndNoCrash) {
    Ok({"new", "good.lxp"});
    ImportPcm("good.lxp", "a.wav", Ramp(30000, 1), 1);
    const std::vector<uint8_t> good = CliFiles::Read(files.Path("good.lxp"));
    ASSERT_GT(good.size(), 60000u);

    std::vector<uint8_t> garbage(good.size());
    uint32_t x = 12345;
    for (uint8_t& byte : garbage) byte = static_cast<uint8_t>((x = x * 1103515245 + 12345) >> 16);
    // Cut by one byte, the project's integrity record is damaged: it opens, and
    // says so; neither empty nor foreign bytes open at all. A command that would
    // save leaves each file as it was.
    struct Case {
        std::string name;
        std::vector<uint8_t> bytes;
        int exitCode;
        std::string says;
    };
    const Case cases[] = {
        {"short.lxp", {good.begin(), good.end() - 1}, 4,
         "  store: the integrity record is cut short or followed by other bytes\n"},
        {"empty.lxp", {}, 1, "lxaudio: cannot open project 'empty.lxp': the file is empty\n"},
        {"garbage.lxp", garbage, 1, "lxaudio: cannot open project 'garbage.lxp': the project is damaged"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CliFiles::Write(files.Path(c.name), c.bytes);
        CliResult info = cli.Run({"info", c.name});
        EXPECT_EQ(info.exitCode, c.exitCode);
        EXPECT_NE((info.out + info.err).find(c.says), std::string::npos) << info.out << info.err;
        EXPECT_EQ(cli.Run({"import", c.name, "a.wav"}).exitCode, c.exitCode);
        EXPECT_EQ(CliFiles::Read(files.Path(c.name)), c.bytes);
    }

    // A folder that holds no project, and a folder project with a cut chunk file.
    fs::create_directory(files.Path("nothing"));
    ExpectOneErrorLine(cli.Run({"info", "nothing"}), "lxaudio: cannot open project 'nothing': the folder holds no");
    Ok({"--dir", "new", "folder"});
    ImportPcm("folder", "a.wav", Ramp(30000, 1), 1);
    const std::string chunk = files.Path("folder/pcm.lxa1");
    std::vector<uint8_t> pages = CliFiles::Read(chunk);
    CliFiles::Write(chunk, std::vector<uint8_t>(pages.begin(), pages.begin() + 100));
    CliResult info = cli.Run({"info", "folder"});
    EXPECT_EQ(info.exitCode, 4);
    EXPECT_NE(info.out.find("  pcm.lxa1: holds 100 bytes, 216 saved\n"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("      1 damaged: page 180 damaged\n"), std::string::npos) << info.out;
    ExpectOneErrorLine(cli.Run({"info", "missing.lxp"}), "lxaudio: cannot open project 'missing.lxp'");
}

TEST_F(CliTest, KilledSaveLeavesThePreviousProjectReadable) {
    CliFiles::WriteWav(files.Path("more.wav"), Ramp(100000, 2, 5), 2, 44100);
    for (bool directory : {false, true}) {
        SCOPED_TRACE(directory ? "directory" : "file");
        const std::string project = directory ? "killed" : "killed.lxp";
        Ok(directory ? std::vector<std::string>{"--dir", "new", project} : std::vector<std::string>{"new", project});
        const std::vector<int16_t> first = Ramp(49950, 1);
        ASSERT_EQ(ImportPcm(project, "first.wav", first, 1), 1);
        const auto before = CliFiles::Snapshot(files.Path(project));

        // The import stops half-way through writing the new project and is killed there.
        pid_t pid = cli.Start({"-q", "import", project, "more.wav"}, {"LXAUDIO_TEST_SAVE_PAUSE_BYTES=70000"});
        ASSERT_TRUE(cli.WaitForError("save paused"));
        cli.Kill(pid);
        CliResult killed = cli.Wait(pid);
#ifdef SIGKILL
        EXPECT_EQ(killed.signal, SIGKILL);
#else
        EXPECT_NE(killed.exitCode, 0);  // TerminateProcess: no signals on Windows
#endif

        EXPECT_EQ(CliFiles::Snapshot(files.Path(project)), before);
        auto leftovers = [&] {
            int n = 0;
            for (const auto& entry : fs::directory_iterator(files.Dir()))
                n += entry.path().filename().string().rfind("." + project + ".saving-", 0) == 0;
            return n;
        };
        EXPECT_GT(leftovers(), 0);
        // The next command clears what the killed one left next to the project.
        EXPECT_EQ(Exported(project, 1), Wide(first));
        EXPECT_EQ(leftovers(), 0);
        EXPECT_EQ(ClipIDs(Ok({"-q", "import", project, "more.wav"}), "imported"), std::vector<int>{2});
    }
}

TEST_F(CliTest, FullDiskDuringSaveLeavesThePreviousProject) {
#ifdef _WIN32
    GTEST_SKIP() << "fills the disk with a file size limit (POSIX RLIMIT_FSIZE)";
#endif
    Ok({"new", "full.lxp"});
    ImportPcm("full.lxp", "a.wav", Ramp(60000, 1), 1);
    const std::vector<uint8_t> before = CliFiles::Read(files.Path("full.lxp"));
    // No file may grow past the old project's size less a little: the store's own
    // member files fit, the new project file does not.
    CliResult r = cli.Run({"edit", "full.lxp", "1", "gain", "0", "500", "0.5"}, {},
                          static_cast<long>(before.size()) - 64);
    ExpectOneErrorLine(r, "lxaudio: cannot save project 'full.lxp'");
    EXPECT_NE(r.err.find("previous version is unchanged"), std::string::npos) << r.err;
    EXPECT_EQ(CliFiles::Read(files.Path("full.lxp")), before);
    for (const auto& entry : fs::directory_iterator(files.Dir()))
        EXPECT_EQ(entry.path().filename().string().find(".saving-"), std::string::npos);
}

TEST_F(CliTest, FailuresNameWhatWhichFileAndWhy) {
    Ok({"new", "p.lxp"});
    const std::vector<uint8_t> before = CliFiles::Read(files.Path("p.lxp"));

    ExpectOneErrorLine(cli.Run({"import", "p.lxp", "nowhere.wav"}),
                       "lxaudio: cannot import 'nowhere.wav': no such file");
    CliFiles::Write(files.Path("notes.txt"), {'h', 'e', 'l', 'l', 'o', '\n'});
    ExpectOneErrorLine(cli.Run({"import", "p.lxp", "notes.txt"}),
                       "lxaudio: cannot import 'notes.txt': not a WAV or Ogg Vorbis file");

    // A RIFF WAVE file in a format the importer refuses: the engine's report is
    // summarised in the one line, or shown as it happens with --verbose.
    CliFiles::Write(files.Path("mp3.wav"), WavWriter::Pcm(85, 2, 44100, 16, std::vector<uint8_t>(400, 1)));
    ExpectOneErrorLine(cli.Run({"import", "p.lxp", "mp3.wav"}), "lxaudio: cannot import 'mp3.wav': engine reported");
    CliResult verbose = cli.Run({"-v", "import", "p.lxp", "mp3.wav"});
    EXPECT_EQ(verbose.exitCode, 1);
    EXPECT_EQ(verbose.err.rfind("lxaudio: engine: ", 0), 0u) << verbose.err;
    EXPECT_NE(verbose.err.find("\nlxaudio: cannot import 'mp3.wav'"), std::string::npos) << verbose.err;
    EXPECT_EQ(CliFiles::Read(files.Path("p.lxp")), before);

    // Command-line mistakes exit with 2 (the tool's) or CLI11's own non-zero status.
    EXPECT_EQ(cli.Run({"edit", "p.lxp", "1", "frobnicate"}).exitCode, 1);  // no clip 1 yet: the project comes first
    ImportPcm("p.lxp", "a.wav", Ramp(10000, 1), 1);
    CliResult usage = cli.Run({"edit", "p.lxp", "1", "frobnicate"});
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(usage.err, "lxaudio: unknown edit operation 'frobnicate': see lxaudio edit --help\n");
    EXPECT_EQ(cli.Run({"edit", "p.lxp", "1", "gain", "0", "100", "loud"}).err,
              "lxaudio: bad gain 'loud': expected a factor (0.5) or decibels (-6dB) between -120 and +60\n");
    EXPECT_NE(cli.Run({"frobnicate"}).exitCode, 0);
    for (const char* command : {"new", "edit", "record"}) {
        CliResult help = cli.Run({command, "--help"});
        EXPECT_EQ(help.exitCode, 0) << command;
        EXPECT_NE(help.out.find("Usage:"), std::string::npos) << command;
    }
}
