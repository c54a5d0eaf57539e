// What the tool must never do to a user's files: write an output over its own
// input, replace a device or a pipe, turn a symbolic link into a file, change a
// project's permissions or owner, or change a read-only project. And the
// messages of the import and of the command line, each naming what, which file
// and why.
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <thread>
#include "CliTestSupport.h"
#include "VorbisEncoder.h"
#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

// Every regular file under dir, but the runner's own files, with its size and
// a hash of its bytes.
std::map<std::string, std::string> FilesUnder(const std::string& dir) {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        const std::string name = fs::relative(entry.path(), dir).generic_string();
        if (!entry.is_regular_file() || name.rfind(".cli-", 0) == 0) continue;
        const std::vector<uint8_t> bytes = CliFiles::Read(entry.path().string());
        found[name] = std::to_string(bytes.size()) + " bytes, hash " +
                      std::to_string(std::hash<std::string>{}(std::string(bytes.begin(), bytes.end())));
    }
    return found;
}

#ifndef _WIN32
unsigned ModeOf(const std::string& path) { return static_cast<unsigned>(fs::status(path).permissions()) & 07777u; }

// A null device to write into: /dev/null itself only where a tool that wrongly
// renamed over it could not (the superuser could, so it gets a node of its own
// in the test's folder, the same device).
std::string NullDevice(const CliFiles& files) {
    if (::geteuid() != 0) return "/dev/null";
    const std::string node = files.Path("null");
    return ::mknod(node.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0 ? node : "";
}
#endif

}  // namespace

TEST_F(CliTest, OutputsThatWouldDestroyAnInputAreRefused) {
    Ok({"new", "p.lxp"});
    ImportPcm("p.lxp", "a.wav", Ramp(22050, 1), 1);
    Ok({"--dir", "new", "d"});
    ImportPcm("d", "a.wav", Ramp(22050, 1), 1);
    std::error_code noLinks;
    fs::create_symlink("p.lxp", files.Path("link.png"), noLinks);  // needs a privilege on Windows
    const struct {
        const char* name;
        std::vector<std::string> args;
        std::string error;
    } cases[] = {
        {"the project itself", {"export", "p.lxp", "1", "p.lxp"},
         "lxaudio: cannot export to 'p.lxp': it is the project 'p.lxp' (the same file); nothing was changed\n"},
        {"inside a directory project", {"mix", "d", "1@0", "-o", "d/mix.wav"},
         "lxaudio: cannot mix into 'd/mix.wav': it lies inside the project 'd'; nothing was changed\n"},
        {"a symbolic link to the project", {"waveform", "p.lxp", "1", "link.png"},
         "lxaudio: cannot write picture 'link.png': it is the project 'p.lxp' (the same file); nothing was changed\n"},
    };
    const auto before = FilesUnder(files.Dir());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (noLinks && c.args[0] == "waveform") continue;
        CliResult r = cli.Run(c.args);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.error);
        EXPECT_EQ(FilesUnder(files.Dir()), before);
    }
    if (!noLinks) {
        EXPECT_TRUE(fs::is_symlink(files.Path("link.png")));
    }
}

TEST_F(CliTest, DevicesAndPipesAreWrittenIntoNeverRenamedOver) {
#ifdef _WIN32
    GTEST_SKIP() << "needs /dev/null and named pipes (POSIX)";
#else
    Ok({"new", "p.lxp"});
    ImportPcm("p.lxp", "a.wav", Ramp(30000, 2), 2);
    Ok({"-q", "export", "p.lxp", "1", "file.wav"});
    const std::vector<uint8_t> wav = CliFiles::Read(files.Path("file.wav"));

    const std::string null = NullDevice(files);
    ASSERT_FALSE(null.empty()) << "no device node could be made";
    Ok({"-q", "export", "p.lxp", "1", null});
    EXPECT_TRUE(fs::is_character_file(null));

    // A reader on a named pipe gets the whole WAV file, and the pipe stays one.
    const std::string pipe = files.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // The test holds a writing end while the tool runs, so that the reader
    // ends (at the end of the data, or with nothing) whatever the tool does.
    const int held = ::open(pipe.c_str(), O_RDWR);
    ASSERT_GE(held, 0);
    std::vector<uint8_t> read;
    std::thread reader([&] { read = CliFiles::Read(pipe); });
    CliResult r = cli.Run({"-q", "mix", "p.lxp", "1@0", "-o", "pipe"});
    ::close(held);
    reader.join();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(read, wav);
    EXPECT_TRUE(fs::is_fifo(pipe));
    for (const auto& [name, bytes] : FilesUnder(files.Dir()))
        EXPECT_EQ(name.find(".lxpart"), std::string::npos) << name;
#endif
}

TEST_F(CliTest, SavesKeepLinksModesAndOwnersAndReadOnlyProjectsStayUnchanged) {
#ifdef _WIN32
    GTEST_SKIP() << "POSIX modes, owners and symbolic links";
#else
    fs::create_directory(files.Path("real"));
    Ok({"new", "real/p.lxp"});
    Ok({"--dir", "new", "real/d"});
    fs::create_symlink("real/p.lxp", files.Path("p.lxp"));
    fs::create_symlink("real/d", files.Path("d"));
    fs::permissions(files.Path("real/p.lxp"), fs::perms(0600));
    fs::permissions(files.Path("real/d"), fs::perms(0700));
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(files.Path("real/p.lxp").c_str(), 4321, 4321), 0);
    }

    // Saved through the link: the link stays, its target holds the new project.
    for (const std::string project : {"p.lxp", "d"}) {
        SCOPED_TRACE(project);
        EXPECT_EQ(ImportPcm(project, "a.wav", Ramp(22050, 1), 1), 1);
        EXPECT_TRUE(fs::is_symlink(files.Path(project)));
        EXPECT_EQ(fs::read_symlink(files.Path(project)), fs::path("real") / project);
        EXPECT_NE(Ok({"info", "real/" + project}).find("clips    1\n"), std::string::npos);
    }
    EXPECT_EQ(ModeOf(files.Path("real/p.lxp")), 0600u);
    EXPECT_EQ(ModeOf(files.Path("real/d")), 0700u);
    struct stat owner {};
    ASSERT_EQ(::stat(files.Path("real/p.lxp").c_str(), &owner), 0);
    if (root) {
        EXPECT_EQ(std::make_pair(owner.st_uid, owner.st_gid), std::make_pair(uid_t{4321}, gid_t{4321}));
    }

    // The working folder beside the project, and each working directory in it,
    // are private while a command runs.
    pid_t pid = cli.Start({"-q", "import", "p.lxp", "a.wav"}, {"LXAUDIO_TEST_SAVE_PAUSE_BYTES=20000"});
    ASSERT_TRUE(cli.WaitForError("save paused"));
    EXPECT_EQ(ModeOf(files.Path(".p.lxp.work")), 0700u);
    for (const auto& entry : fs::directory_iterator(files.Path(".p.lxp.work"))) {
        if (entry.is_directory()) {
            EXPECT_EQ(ModeOf(entry.path().string()), 0700u) << entry.path();
        }
    }
    cli.Kill(pid);
    cli.Wait(pid);

    // Read-only: every command that would change it is refused, and reading still works.
    fs::permissions(files.Path("real/p.lxp"), fs::perms(0444));
    const std::vector<uint8_t> before = CliFiles::Read(files.Path("real/p.lxp"));
    const std::vector<std::vector<std::string>> changes = {{"import", "p.lxp", "a.wav"},
                                                           {"edit", "p.lxp", "1", "fadein", "10"},
                                                           {"compress", "p.lxp"},
                                                           {"compact", "p.lxp"},
                                                           {"record", "p.lxp", "--seconds", "1"}};
    for (const std::vector<std::string>& command : changes) {
        SCOPED_TRACE(command[0]);
        ExpectOneErrorLine(cli.Run(command), "lxaudio: cannot change project 'p.lxp': read-only; not changed\n");
        EXPECT_EQ(CliFiles::Read(files.Path("real/p.lxp")), before);
        EXPECT_EQ(ModeOf(files.Path("real/p.lxp")), 0444u);
    }
    EXPECT_EQ(Exported("p.lxp", 1), Wide(Ramp(22050, 1)));
#endif
}

TEST_F(CliTest, ImportAndCommandLineMessagesNameWhatWhichFileAndWhy) {
    Ok({"new", "p.lxp"});
    ImportPcm("p.lxp", "a.wav", Ramp(22050, 1), 1);
    CliFiles::WriteWav(files.Path("six.wav"), Ramp(4410, 6), 6, 44100);
    // Two seconds promised, one second there.
    CliFiles::WriteWav(files.Path("cut.wav"), Ramp(88200, 1), 1, 44100);
    std::vector<uint8_t> cut = CliFiles::Read(files.Path("cut.wav"));
    cut.erase(cut.end() - 88200, cut.end());
    CliFiles::Write(files.Path("cut.wav"), cut);
    const std::vector<int16_t> piped = Ramp(44100, 2, 4);
    CliFiles::WriteWav(files.Path("piped.wav"), piped, 2, 44100);
    CliFiles::Write(files.Path("empty"), {});
    // The commands, as --help lists them.
    std::string commands;
    const std::string help = Ok({"--help"});
    std::istringstream lines(help.substr(help.find("Subcommands:\n") + 13));
    for (std::string line; std::getline(lines, line) && line.rfind("  ", 0) == 0;)
        commands += (commands.empty() ? "" : ", ") + line.substr(2, line.find(' ', 2) - 2);
    ASSERT_NE(commands.find("import, edit, mix, export"), std::string::npos) << help;

    struct Case {
        const char* name;
        std::vector<std::string> args;
        std::vector<std::string> env;
        std::string input;
        int exitCode;
        std::string error;
        std::string out;  // the start of stdout
    };
    std::vector<Case> cases = {
        {"six channels", {"import", "p.lxp", "six.wav"}, {}, "", 1,
         "lxaudio: cannot import 'six.wav': 6 channels: only mono and stereo are imported\n", ""},
        {"a batch with failures saves none", {"import", "p.lxp", "a.wav", "six.wav", "nowhere.wav"}, {}, "", 1,
         "lxaudio: cannot import 2 of 3 files, so none was imported: 'six.wav': 6 channels: only mono and stereo "
         "are imported; 'nowhere.wav': no such file\n", ""},
        {"unknown command", {"frobnicate", "p.lxp"}, {}, "", 2,
         "lxaudio: unknown command 'frobnicate': the commands are " + commands + " (lxaudio --help)\n", ""},
        {"missing output folder", {"export", "p.lxp", "1", "nowhere/a.wav"}, {}, "", 1,
         "lxaudio: cannot export to 'nowhere/a.wav': its folder 'nowhere' does not exist\n", ""},
        {"empty standard input", {"import", "p.lxp", "-"}, {}, files.Path("empty"), 1,
         "lxaudio: cannot import standard input: it was empty\n", ""},
        {"a WAV file cut short", {"-q", "import", "p.lxp", "cut.wav"}, {}, "", 0,
         "lxaudio: warning: 'cut.wav' is cut short: its header promises 2.000 s (88200 frames), the file holds "
         "1.000 s (44100 frames); imported what it holds\n", "imported cut.wav as clip 2, 1.000 s, mono\n"},
        {"a WAV file on standard input", {"-q", "import", "p.lxp", "-"}, {}, files.Path("piped.wav"), 0, "",
         "imported standard input as clip 3, 1.000 s, stereo\n"},
    };
#ifndef _WIN32
    const std::string missing = files.Path("missing-temporary"), pipe = files.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    cases.push_back({"no temporary folder for a pipe", {"export", "p.lxp", "1", pipe}, {"TMPDIR=" + missing}, "", 1,
                     "lxaudio: cannot export to '" + pipe + "': a device or a pipe is written from a finished copy, "
                     "but the temporary folder '" + missing + "' (TMPDIR) does not exist\n", ""});
#endif
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> before = CliFiles::Read(files.Path("p.lxp"));
        cli.input = c.input;
        CliResult r = cli.Run(c.args, c.env);
        cli.input.clear();
        EXPECT_EQ(r.exitCode, c.exitCode);
        EXPECT_EQ(r.err, c.error);
        EXPECT_EQ(r.out.rfind(c.out, 0), 0u) << r.out;
        if (c.exitCode != 0) {
            EXPECT_EQ(CliFiles::Read(files.Path("p.lxp")), before);
        }
    }
    EXPECT_EQ(Exported("p.lxp", 3), Wide(piped));

    // An Ogg Vorbis file cut in its last pages: the page cut off tells how far
    // the stream would have gone.
    std::vector<float> tone(5 * 44100);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = static_cast<float>(i % 100) / 200.0f - 0.25f;
    const std::vector<uint8_t> ogg = EncodeVorbis(tone, 1, 44100);
    CliFiles::Write(files.Path("cut.ogg"), std::vector<uint8_t>(ogg.begin(), ogg.begin() + static_cast<long>(ogg.size() * 8 / 10)));
    CliResult r = cli.Run({"-q", "import", "p.lxp", "cut.ogg"});
    EXPECT_EQ(r.exitCode, 0);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(r.err, m, std::regex("lxaudio: warning: 'cut\\.ogg' is cut short: its last page promises "
                                                       "\\d+\\.\\d{3} s \\((\\d+) frames\\), the file holds \\d+\\.\\d{3} s "
                                                       "\\((\\d+) frames\\); imported what it holds\n")))
        << r.err;
    const long promised = std::stol(m[1]), found = std::stol(m[2]);
    EXPECT_GT(promised, found);
    EXPECT_LT(promised, 5 * 44100);
    EXPECT_GT(found, 5 * 44100 / 2);
    EXPECT_NEAR(static_cast<double>(Exported("p.lxp", 4).size()), static_cast<double>(found), 90.0);
}
