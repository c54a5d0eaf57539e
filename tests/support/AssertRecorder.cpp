#include "AssertRecorder.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {
std::mutex gMutex;
std::vector<AssertReport> gReports;
}  // namespace

AssertRecorder::AssertRecorder() {
    Clear();
    previous_ = LxSetAssertHandler(&AssertRecorder::Handler);
}

AssertRecorder::~AssertRecorder() { LxSetAssertHandler(previous_); }

void AssertRecorder::Handler(const char* message, const char* sourceFile, int line) {
    std::lock_guard<std::mutex> lock(gMutex);
    gReports.push_back({message ? message : "", sourceFile ? sourceFile : "", line});
}

std::vector<AssertReport> AssertRecorder::Reports() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gReports;
}

size_t AssertRecorder::Count() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gReports.size();
}

void AssertRecorder::Clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gReports.clear();
}

int SourceLineOf(const std::string& relativePath, const std::string& snippet) {
    std::ifstream in(std::string(LX_SOURCE_DIR) + "/" + relativePath);
    EXPECT_TRUE(in.good()) << "cannot open " << relativePath;
    std::string text;
    int number = 0, found = 0, hits = 0;
    while (std::getline(in, text)) {
        ++number;
        if (text.find(snippet) != std::string::npos) {
            found = number;
            ++hits;
        }
    }
    EXPECT_EQ(hits, 1) << "snippet '" << snippet << "' in " << relativePath;
    return hits == 1 ? found : 0;
}

void ExpectSingleReport(const AssertRecorder& recorder, const std::string& message, const std::string& sourceFile,
                        int line) {
    auto reports = recorder.Reports();
    ASSERT_EQ(reports.size(), 1u) << "expected one report '" << message << "'";
    EXPECT_EQ(reports[0].message, message);
    EXPECT_EQ(reports[0].sourceFile, sourceFile);
    EXPECT_EQ(reports[0].line, line);
}

void ExpectReportFrom(const AssertRecorder& recorder, const std::string& message, const std::string& component) {
    const std::string file = "source/components/" + component;
    ExpectSingleReport(recorder, message, file, SourceLineOf(file + ".cpp", "\"" + message + "\""));
}
