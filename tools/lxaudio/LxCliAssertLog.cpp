#include "LxCliAssertLog.h"

#include <cstdio>
#include "LxAudioCore.h"

LxCliAssertLog* LxCliAssertLog::active_ = nullptr;

LxCliAssertLog::LxCliAssertLog(bool verbose) : verbose_(verbose) {
    active_ = this;
    LxSetAssertHandler(&LxCliAssertLog::Handler);
}

LxCliAssertLog::~LxCliAssertLog() {
    LxSetAssertHandler(nullptr);
    active_ = nullptr;
}

void LxCliAssertLog::Handler(const char* message, const char* sourceFile, int line) {
    LxCliAssertLog* log = active_;
    if (!log) return;
    Report report{message ? message : "", sourceFile ? sourceFile : "", line};
    // Device and compressor threads report too: keep the list and stderr consistent.
    std::lock_guard<std::mutex> guard(log->mutex_);
    if (log->verbose_) std::fprintf(stderr, "lxaudio: engine: %s\n", Describe(report).c_str());
    log->reports_.push_back(std::move(report));
}

size_t LxCliAssertLog::Count() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return reports_.size();
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
    std::lock_guard<std::mutex> guard(mutex_);
    if (since >= reports_.size()) return "";
    size_t n = reports_.size() - since;
    std::string text = "engine reported " + std::to_string(n) + (n == 1 ? " problem: " : " problems, first: ");
    return text + Describe(reports_[since]);
}

void LxCliAssertLog::Forget(size_t mark) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (mark < reports_.size()) reports_.resize(mark);
}
