#pragma once
// Captures the assertion reports that the engine raises while an AssertRecorder
// is alive, as a host would see them through its own handler.
#include <mutex>
#include <string>
#include <vector>
#include "LxPublic/LxAssert.h"

struct AssertReport {
    std::string message;
    std::string sourceFile;
    int line = 0;
};

class AssertRecorder {
public:
    AssertRecorder();
    ~AssertRecorder();
    AssertRecorder(const AssertRecorder&) = delete;
    AssertRecorder& operator=(const AssertRecorder&) = delete;

    std::vector<AssertReport> Reports() const;
    size_t Count() const;
    void Clear();

private:
    static void Handler(const char* message, const char* sourceFile, int line);
    LxAssertHandler previous_;
};

// The 1-based number of the one line of LX_SOURCE_DIR/relativePath that contains
// snippet; 0 (and a test failure) when none or several do. Tests use it to pin
// an assertion report to the line that raises it without hard-coding numbers.
int SourceLineOf(const std::string& relativePath, const std::string& snippet);

// Expects exactly one report, with this message, source file and line.
void ExpectSingleReport(const AssertRecorder& recorder, const std::string& message, const std::string& sourceFile,
                        int line);

// Expects exactly one report, raised by source/components/<component>.cpp
// (component as "audiocore/LxAudioFile") at the one line that quotes message.
void ExpectReportFrom(const AssertRecorder& recorder, const std::string& message, const std::string& component);
