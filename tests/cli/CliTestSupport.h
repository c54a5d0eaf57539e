#pragma once
// Shared fixture of the tool's tests: a scratch folder, the runner, test
// signals and small parsers of the tool's output.
#include <gtest/gtest.h>
#include <algorithm>
#include <cstdint>
#include <regex>
#include <sstream>
#include <string>
#include <vector>
#include "CliFiles.h"
#include "CliRun.h"

class CliTest : public ::testing::Test {
protected:
    CliFiles files;
    CliRun cli{files.Dir()};

    // A signal that never repeats within a page and is never silent.
    static std::vector<int16_t> Ramp(int frames, int channels, int seed = 1) {
        std::vector<int16_t> pcm(static_cast<size_t>(frames) * channels);
        for (size_t i = 0; i < pcm.size(); ++i)
            pcm[i] = static_cast<int16_t>((static_cast<int>(i) * 37 + seed * 101) % 20001 - 10000);
        return pcm;
    }

    static std::vector<int32_t> Wide(const std::vector<int16_t>& pcm) { return {pcm.begin(), pcm.end()}; }

    // The failure contract: exit status 1, nothing on stdout, one line on stderr.
    static void ExpectOneErrorLine(const CliResult& r, const std::string& start) {
        EXPECT_EQ(r.signal, 0) << "the tool crashed";
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.rfind(start, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }

    // Runs a command that must succeed and returns its stdout.
    std::string Ok(const std::vector<std::string>& args) {
        CliResult r = cli.Run(args);
        std::string command = "lxaudio";
        for (const std::string& arg : args) command += " " + arg;
        EXPECT_EQ(r.exitCode, 0) << command << "\nstdout: " << r.out << "\nstderr: " << r.err;
        return r.out;
    }

    // Every "clip N" that a line starting with prefix names, in order.
    static std::vector<int> ClipIDs(const std::string& out, const std::string& prefix = "") {
        std::vector<int> ids;
        const std::regex clip("clip (\\d+)");
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind(prefix, 0) != 0) continue;
            for (std::sregex_iterator it(line.begin(), line.end(), clip), last; it != last; ++it)
                ids.push_back(std::stoi((*it)[1]));
        }
        return ids;
    }

    // The ID on the "result: clip N" line of edit.
    static int ResultClip(const std::string& out) {
        std::smatch match;
        return std::regex_search(out, match, std::regex("result: clip (\\d+)")) ? std::stoi(match[1]) : -1;
    }

    // Imports a 44100 Hz WAV of samples and returns the new clip's ID.
    int ImportPcm(const std::string& project, const std::string& name, const std::vector<int16_t>& pcm,
                  int channels) {
        CliFiles::WriteWav(files.Path(name), pcm, channels, 44100);
        std::vector<int> ids = ClipIDs(Ok({"-q", "import", project, name}), "imported");
        return ids.size() == 1 ? ids[0] : -1;
    }

    // Exports a clip at 44100 Hz, 16-bit, in its own channels and reads the samples back.
    std::vector<int32_t> Exported(const std::string& project, int clipID) {
        Ok({"-q", "export", project, std::to_string(clipID), "out.wav"});
        return CliFiles::ReadWav(files.Path("out.wav")).samples;
    }
};
