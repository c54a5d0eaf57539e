#include "LxCliProgressBar.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include "LxCliInterrupt.h"

LxCliProgressBar::LxCliProgressBar(std::string label, bool quiet)
    : label_(std::move(label)), quiet_(quiet), terminal_(LxStandardError::IsTerminal()) {}

LxCliProgressBar::~LxCliProgressBar() { FinishLine(); }

std::string LxCliProgressBar::TaskName(const std::string& taskKey) {
    if (taskKey == "kLxImportingAudio") return "importing";
    if (taskKey == "kLxExportingAudio") return "exporting";
    if (taskKey == "kLxCompressingAudio") return "compressing pages";
    if (taskKey == "kLxDiscoverUnreachAudio") return "finding unused audio";
    if (taskKey == "kLxCompactingAudio") return "copying pages";
    if (taskKey == "kLxUpdateClips") return "updating clips";
    // Unknown keys: "kLxSomeThing" -> "some thing".
    std::string name = taskKey.rfind("kLx", 0) == 0 ? taskKey.substr(3) : taskKey;
    std::string words;
    for (char c : name) {
        if (std::isupper(static_cast<unsigned char>(c)) && !words.empty()) words += ' ';
        words += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return words;
}

void LxCliProgressBar::BeginTask(const LxString& taskKey, int total, int) { BeginNextTask(taskKey, total); }

void LxCliProgressBar::BeginNextTask(const LxString& taskKey, int total) {
    FinishLine();
    task_ = TaskName(taskKey.str());
    total_ = std::max(total, 0);
    done_ = 0;
    drawnPercent_ = -1;
    Draw(true);
}

void LxCliProgressBar::ReportProgress(int done) {
    done_ = std::clamp(done, 0, std::max(total_, 0));
    Draw(false);
}

bool LxCliProgressBar::IsCancelled() { return LxCliInterrupt::Requested(); }

void LxCliProgressBar::EndTask() {
    done_ = total_;
    Draw(true);
    FinishLine();
}

void LxCliProgressBar::Draw(bool force) {
    if (quiet_ || task_.empty()) return;
    int percent = total_ > 0 ? static_cast<int>(100LL * done_ / total_) : 100;
    if (!force && percent == drawnPercent_) return;
    drawnPercent_ = percent;
    if (!terminal_) {
        // Pipes and logs get the finished line only (FinishLine).
        lineOpen_ = true;
        return;
    }
    constexpr int kWidth = 30;
    int filled = percent * kWidth / 100;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '.');
    std::fprintf(stderr, "\r%s: %-22s [%s] %3d%%", label_.c_str(), task_.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
    lineOpen_ = true;
}

void LxCliProgressBar::FinishLine() {
    if (!lineOpen_) return;
    lineOpen_ = false;
    if (terminal_) {
        std::fprintf(stderr, "\n");
    } else {
        int percent = total_ > 0 ? static_cast<int>(100LL * done_ / total_) : 100;
        std::fprintf(stderr, "%s: %s %d%%\n", label_.c_str(), task_.c_str(), percent);
    }
    std::fflush(stderr);
}
