#include "CliRun.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>

pid_t CliRun::Start(const std::vector<std::string>& args, const std::vector<std::string>& env,
                    long fileSizeLimit) const {
    const std::string out = Path(".cli-stdout");
    const std::string err = Path(".cli-stderr");
    // Empty both files first, so that WaitForError never reads an earlier run's output.
    std::ofstream(out, std::ios::trunc).close();
    std::ofstream(err, std::ios::trunc).close();
    pid_t pid = fork();
    if (pid != 0) return pid;
    // Child: working directory, output files, environment, limits, then the tool.
    if (chdir(dir_.c_str()) != 0) _exit(126);
    if (!freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr)) _exit(126);
    if (!input.empty() && !freopen(input.c_str(), "r", stdin)) _exit(126);
    // The engine's private store folders go inside the test's folder, so that a
    // killed tool leaves nothing behind in the system's temporary directory.
    const std::string temporary = dir_ + "/.tmp";
    mkdir(temporary.c_str(), 0700);
    setenv("TMPDIR", temporary.c_str(), 1);
    for (const std::string& setting : env) putenv(const_cast<char*>(setting.c_str()));
    if (fileSizeLimit >= 0) {
        // A file that may not grow past the limit behaves like a full disk.
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{static_cast<rlim_t>(fileSizeLimit), static_cast<rlim_t>(fileSizeLimit)};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv;
    std::string exe = LXAUDIO_EXE;
    argv.push_back(exe.data());
    std::vector<std::string> copy = args;
    for (std::string& arg : copy) argv.push_back(arg.data());
    argv.push_back(nullptr);
    execv(exe.c_str(), argv.data());
    _exit(127);
}

CliResult CliRun::Wait(pid_t pid) const {
    int status = 0;
    CliResult result;
    if (waitpid(pid, &status, 0) == pid) {
        if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    }
    result.out = Slurp(Path(".cli-stdout"));
    result.err = Slurp(Path(".cli-stderr"));
    return result;
}

void CliRun::Kill(pid_t pid) const { ::kill(pid, SIGKILL); }
