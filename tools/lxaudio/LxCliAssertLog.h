#pragma once
// The tool's handler of the engine's assertion reports. With --verbose every
// report is printed as it happens; otherwise reports are collected quietly and
// summarised in the one error line of a command that fails.
#include <mutex>
#include <string>
#include <vector>

class LxCliAssertLog {
public:
    // Installs the handler for the life of the object (one at a time).
    explicit LxCliAssertLog(bool printEach);
    ~LxCliAssertLog();
    LxCliAssertLog(const LxCliAssertLog&) = delete;
    LxCliAssertLog& operator=(const LxCliAssertLog&) = delete;

    size_t Count() const;
    // Reports since the last mark; a command marks before a step it wants to judge.
    size_t Mark() const { return Count(); }
    size_t CountSince(size_t mark) const { return Count() - mark; }
    // Drops the reports since mark, for a step that said what went wrong in
    // its own words (a damaged project's load names the damage itself).
    void Forget(size_t mark);
    // "engine reported N problem(s); first: MESSAGE (FILE:LINE)", or "" when none.
    std::string Summary(size_t since = 0) const;

private:
    struct Report {
        std::string message;
        std::string sourceFile;
        int line;
    };
    static void Handler(const char* message, const char* sourceFile, int line);
    static std::string Describe(const Report& report);

    bool verbose;
    mutable std::mutex mutex;
    std::vector<Report> reports;
    static LxCliAssertLog* active;
};
