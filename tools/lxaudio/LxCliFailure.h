#pragma once
// A command that cannot go on: what was being done, on which file, and why.
// main() catches it, prints it as one line and exits non-zero.
#include <stdexcept>
#include <string>

class LxCliFailure : public std::runtime_error {
public:
    // Exit status for a command that failed on its input or its files.
    static constexpr int kExitFailure = 1;
    // Exit status for a command line that cannot be understood.
    static constexpr int kExitUsage = 2;
    // Exit status when the project is damaged: a verified load found bytes
    // that differ from what was saved (3 is an internal error).
    static constexpr int kExitDamaged = 4;

    LxCliFailure(const std::string& what, const std::string& file, const std::string& why,
                 int exitWith = kExitFailure)
        : std::runtime_error(Compose(what, file, why)), exitCode(exitWith) {}

    int ExitCode() const { return exitCode; }

private:
    static std::string Compose(const std::string& what, const std::string& file, const std::string& why) {
        std::string line = what;
        if (!file.empty()) line += " '" + file + "'";
        if (!why.empty()) line += ": " + why;
        return line;
    }

    int exitCode;
};
