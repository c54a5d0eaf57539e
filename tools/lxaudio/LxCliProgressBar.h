#pragma once
// A progress bar on stderr for the engine's long operations (import, export,
// compression, compaction). On a terminal it redraws one line in place; into a
// pipe or a file it writes one line per finished task, so logs stay readable.
// Ctrl-C (see LxCliInterrupt) cancels operations that poll IsCancelled.
#include <string>
#include "LxAudioCore.h"

class LxCliProgressBar : public ILxGeneralProgressCallBack {
public:
    // lineLabel prefixes every line ("import lecture.wav"); silent prints nothing.
    LxCliProgressBar(std::string lineLabel, bool silent);
    ~LxCliProgressBar() override;

    void BeginTask(const LxString& taskKey, int steps, int options) override;
    void BeginNextTask(const LxString& taskKey, int steps) override;
    void ReportProgress(int stepsDone) override;
    bool IsCancelled() override;
    void EndTask() override;

    // The engine's task key as words ("kLxCompressingAudio" -> "compressing audio").
    static std::string TaskName(const std::string& taskKey);

private:
    void Draw(bool force);
    void FinishLine();

    std::string label;
    bool quiet;
    bool terminal;
    std::string task;
    int total = 0;
    int done = 0;
    int drawnPercent = -1;
    bool lineOpen = false;
};
