#pragma once
// A progress receiver that keeps every call it hears, as text, and can ask for
// a cancel after a number of reports.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>
#include "LxPublic/ILxGeneralProgressCallBack.h"

class ProgressRecorder : public ILxGeneralProgressCallBack {
public:
    // "begin <key> <total> <options>", "next <key> <total>", "report <done>", "end".
    std::vector<std::string> calls;
    std::string task;
    int total = -1, last = -1, reports = 0, ends = 0, cancelAfter = INT_MAX;
    bool monotonic = true;

    void BeginTask(const LxString& key, int n, int options) override {
        task = key.str();
        total = n;
        calls.push_back("begin " + task + " " + std::to_string(n) + " " + std::to_string(options));
    }
    void BeginNextTask(const LxString& key, int n) override {
        calls.push_back("next " + key.str() + " " + std::to_string(n));
    }
    void ReportProgress(int done) override {
        monotonic = monotonic && done >= last;
        last = done;
        ++reports;
        calls.push_back("report " + std::to_string(done));
    }
    bool IsCancelled() override { return reports >= cancelAfter; }
    void EndTask() override {
        ++ends;
        calls.push_back("end");
    }
};
