#pragma once
// A progress bar on stderr for the engine's long operations (import, export,
// compression, compaction). On a terminal it redraws one line in place; into a
// pipe or a file it writes one line per finished task, so logs stay readable.
// Ctrl-C (see LxCliInterrupt) cancels operations that poll IsCancelled.
#include <string>
#include "LxAudioCore.h"

class LxCliProgressBar : public ILxGeneralProgressCallBack {
public:
    // label prefixes every line ("import lecture.wav"); quiet prints nothing.
    LxCliProgressBar(std::string label, bool quiet);
    ~LxCliProgressBar() override;

    void BeginTask(const LxString& taskKey, int total, int options) override;
    void BeginNextTask(const LxString& taskKey, int total) override;
    void ReportProgress(int done) override;
    bool IsCancelled() override;
    void EndTask() override;

    // The engine's task key as words ("kLxCompressingAudio" -> "compressing audio").
    static std::string TaskName(const std::string& taskKey);

private:
    void Draw(bool force);
    void FinishLine();

    std::string label_;
    bool quiet_;
    bool terminal_;
    std::string task_;
    int total_ = 0;
    int done_ = 0;
    int drawnPercent_ = -1;
    bool lineOpen_ = false;
};
