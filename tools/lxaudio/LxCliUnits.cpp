#include "LxCliUnits.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include "LxAudioConstants.h"
#include "LxCliFailure.h"

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() > suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A finite decimal number filling the whole text.
bool ParseNumber(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(value);
}

[[noreturn]] void Bad(const std::string& what, const std::string& text) {
    throw LxCliFailure("bad " + what, text,
                       "expected milliseconds (1500), seconds (1.5s) or frames (66150f), not negative",
                       LxCliFailure::kExitUsage);
}

// A time in frames (may be fractional before rounding); false when the text is no time.
bool ParseTime(const std::string& text, double& frames, bool& exactFrames) {
    std::string t = Lower(text);
    double value = 0;
    exactFrames = false;
    if (EndsWith(t, "ms")) {
        if (!ParseNumber(t.substr(0, t.size() - 2), value)) return false;
        frames = value * 0.001 * LxCliUnits::kFramesPerSecond;
    } else if (EndsWith(t, "s")) {
        if (!ParseNumber(t.substr(0, t.size() - 1), value)) return false;
        frames = value * LxCliUnits::kFramesPerSecond;
    } else if (EndsWith(t, "f")) {
        if (!ParseNumber(t.substr(0, t.size() - 1), value) || value != std::trunc(value)) return false;
        frames = value;
        exactFrames = true;
    } else {
        if (!ParseNumber(t, value)) return false;
        frames = value * 0.001 * LxCliUnits::kFramesPerSecond;
    }
    return frames >= 0;
}

}  // namespace

const char* LxCliUnits::Help() {
    return "Times: a plain number is milliseconds (1500); or 1500ms, 1.5s, or 66150f\n"
           "(frames at kLxFrameRate Hz, exact). 'end' is the clip's length.";
}

int LxCliUnits::MillisecondsToFrames(double milliseconds) {
    double frames = std::trunc(milliseconds * 0.001 * kFramesPerSecond + 0.5);
    if (frames > INT_MAX || frames < INT_MIN) return frames > 0 ? INT_MAX : INT_MIN;
    return static_cast<int>(frames);
}

int LxCliUnits::ParseFrames(const std::string& text, int clipLength) {
    if (Lower(text) == "end") {
        if (clipLength < 0) Bad("time", text);
        return clipLength;
    }
    double frames = 0;
    bool exact = false;
    if (!ParseTime(text, frames, exact)) Bad("time", text);
    if (!exact) frames = std::trunc(frames + 0.5);
    if (frames > INT_MAX) Bad("time", text);
    return static_cast<int>(frames);
}

int LxCliUnits::ParseMilliseconds(const std::string& text) {
    double frames = 0;
    bool exact = false;
    if (!ParseTime(text, frames, exact)) Bad("time", text);
    double ms = std::round(frames * 1000.0 / kFramesPerSecond);
    if (ms > INT_MAX) Bad("time", text);
    return static_cast<int>(ms);
}

float LxCliUnits::ParseGain(const std::string& text) {
    std::string t = Lower(text);
    double value = 0;
    const char* expected = "expected a factor (0.5) or decibels (-6dB) between -120 and +60";
    if (EndsWith(t, "db")) {
        if (!ParseNumber(t.substr(0, t.size() - 2), value) || value > 60 || value < -120)
            throw LxCliFailure("bad gain", text, expected, LxCliFailure::kExitUsage);
        return static_cast<float>(std::pow(10.0, value / 20.0));
    }
    if (!ParseNumber(t, value) || value < 0 || value > 1000)
        throw LxCliFailure("bad gain", text, expected, LxCliFailure::kExitUsage);
    return static_cast<float>(value);
}

int LxCliUnits::ParseInt(const std::string& text, const std::string& what) {
    double value = 0;
    if (!ParseNumber(text, value) || value != std::trunc(value) || value < INT_MIN || value > INT_MAX)
        throw LxCliFailure("bad " + what, text, "expected a whole number", LxCliFailure::kExitUsage);
    return static_cast<int>(value);
}

std::string LxCliUnits::Seconds(long long frames) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(frames) / kFramesPerSecond);
    return text;
}
