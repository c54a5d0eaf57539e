#include "LxCliAssertLog.h"

#include <cstdio>
#include "LxAudioCore.h"

LxCliAssertLog* LxCliAssertLog::active = nullptr;

LxCliAssertLog::LxCliAssertLog(bool printEach) : verbose(printEach) {
    active = this;
    LxSetAssertHandler(&LxCliAssertLog::Handler);
}

LxCliAssertLog::~LxCliAssertLog() {
    LxSetAssertHandler(nullptr);
    active = nullptr;
}

void LxCliAssertLog::Handler(const char* message, const char* sourceFile, int line) {
    LxCliAssertLog* log = active;
    if (!log) return;
    Report report{message ? message : "", sourceFile ? sourceFile : "", line};
    // Device and compressor threads report too: keep the list and stderr consistent.
    std::lock_guard<std::mutex> guard(log->mutex);
    if (log->verbose) std::fprintf(stderr, "lxaudio: engine: %s\n", Describe(report).c_str());
    log->reports.push_back(std::move(report));
}

size_t LxCliAssertLog::Count() const {
    std::lock_guard<std::mutex> guard(mutex);
    return reports.size();
}

std::string LxCliAssertLog::Describe(const Report& report) {
    std::string text = report.message.empty() ? std::string("internal check failed") : report.message;
    // "source/components/audiocore/LxAudioFile" -> "LxAudioFile"
    std::string file = report.sourceFile;
    size_t slash = file.find_last_of("/\\");
    if (slash != std::string::npos) file = file.substr(slash + 1);
    return text + " (" + file + ":" + std::to_string(report.line) + ")";
}

std::string LxCliAssertLog::Summary(size_t since) const {
    std::lock_guard<std::mutex> guard(mutex);
    if (since >= reports.size()) return "";
    size_t n = reports.size() - since;
    std::string text = "engine reported " + std::to_string(n) + (n == 1 ? " problem: " : " problems, first: ");
    return text + Describe(reports[since]);
}

void LxCliAssertLog::Forget(size_t mark) {
    std::lock_guard<std::mutex> guard(mutex);
    if (mark < reports.size()) reports.resize(mark);
}
