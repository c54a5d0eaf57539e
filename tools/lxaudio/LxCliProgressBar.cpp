#include "LxCliProgressBar.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include "LxCliInterrupt.h"

LxCliProgressBar::LxCliProgressBar(std::string lineLabel, bool silent)
    : label(std::move(lineLabel)), quiet(silent), terminal(LxStandardError::IsTerminal()) {}

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

void LxCliProgressBar::BeginTask(const LxString& taskKey, int steps, int) { BeginNextTask(taskKey, steps); }

void LxCliProgressBar::BeginNextTask(const LxString& taskKey, int steps) {
    FinishLine();
    task = TaskName(taskKey.str());
    total = std::max(steps, 0);
    done = 0;
    drawnPercent = -1;
    Draw(true);
}

void LxCliProgressBar::ReportProgress(int stepsDone) {
    done = std::clamp(stepsDone, 0, std::max(total, 0));
    Draw(false);
}

bool LxCliProgressBar::IsCancelled() { return LxCliInterrupt::Requested(); }

void LxCliProgressBar::EndTask() {
    done = total;
    Draw(true);
    FinishLine();
}

void LxCliProgressBar::Draw(bool force) {
    if (quiet || task.empty()) return;
    int percent = total > 0 ? static_cast<int>(100LL * done / total) : 100;
    if (!force && percent == drawnPercent) return;
    drawnPercent = percent;
    if (!terminal) {
        // Pipes and logs get the finished line only (FinishLine).
        lineOpen = true;
        return;
    }
    constexpr int kWidth = 30;
    int filled = percent * kWidth / 100;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '.');
    std::fprintf(stderr, "\r%s: %-22s [%s] %3d%%", label.c_str(), task.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
    lineOpen = true;
}

void LxCliProgressBar::FinishLine() {
    if (!lineOpen) return;
    lineOpen = false;
    if (terminal) {
        std::fprintf(stderr, "\n");
    } else {
        int percent = total > 0 ? static_cast<int>(100LL * done / total) : 100;
        std::fprintf(stderr, "%s: %s %d%%\n", label.c_str(), task.c_str(), percent);
    }
    std::fflush(stderr);
}
