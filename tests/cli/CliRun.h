#pragma once
// Runs the built lxaudio as a user would: arguments, optional extra environment,
// optional standard input from a file, stdout and stderr captured through files, the exit status or the signal that
// ended it. Also starts it in the background, for tests that kill it.
#include <sys/types.h>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct CliResult {
    int exitCode = -1;  // -1 when a signal ended the process
    int signal = 0;
    std::string out;
    std::string err;
};

class CliRun {
public:
    // dir is the working directory of the tool (and where output files land).
    explicit CliRun(std::string dir) : dir_(std::move(dir)) {}

    CliResult Run(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                  long fileSizeLimit = -1) const {
        return Wait(Start(args, env, fileSizeLimit));
    }

    // Starts the tool and returns its pid; Wait collects it.
    pid_t Start(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                long fileSizeLimit = -1) const;
    CliResult Wait(pid_t pid) const;
    // Ends a started tool at once, giving it no chance to clean up (SIGKILL, or
    // TerminateProcess on Windows); Wait still collects it.
    void Kill(pid_t pid) const;
    // Waits until the running tool's stderr contains text (the guard is against
    // a hang, not a timing expectation).
    bool WaitForError(const std::string& text) const {
        for (int i = 0; i < 6000; ++i) {
            if (Slurp(Path(".cli-stderr")).find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    // A file that the next runs read as their standard input; empty: the
    // test's own (on Windows the NUL device).
    std::string input;

    const std::string& Dir() const { return dir_; }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }

private:
    static std::string Slurp(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    std::string dir_;
};
