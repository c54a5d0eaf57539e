#pragma once
// How the tool reads times, positions and levels typed on the command line.
//
// One syntax everywhere: a plain number is milliseconds ("1500"), and a suffix
// picks another unit: "1500ms", "1.5s", or "66150f" for frames of the project's
// 44100 Hz timeline (exact; milliseconds become frames as the engine rounds
// them, trunc(ms x 44.1 + 0.5)). As a position, p is the cut point before the
// (p + 1)-th frame, so the stretch "A B" holds frames A .. B - 1 (0-based).
// "end" is the clip's length. Levels are plain factors ("0.5") or decibels ("-6dB").
#include "LxAudioConstants.h"
#include <string>

class LxCliUnits {
public:
    static constexpr int kFramesPerSecond = kLxFrameRate;

    // Frames for a position or length; clipLength resolves "end" (-1: not allowed).
    // Throws LxCliFailure (usage) on anything else.
    static int ParseFrames(const std::string& text, int clipLength = -1);
    // Whole milliseconds for a time in the same syntax.
    static int ParseMilliseconds(const std::string& text);
    // A gain factor: "0.5", "2", "-6dB", "+3db".
    static float ParseGain(const std::string& text);
    // A whole number (clip IDs, pixel sizes); throws on anything else.
    static int ParseInt(const std::string& text, const std::string& what);

    // Milliseconds to frames as the engine rounds them: trunc(ms x 44.1 + 0.5).
    static int MillisecondsToFrames(double milliseconds);
    // "12.345 s"
    static std::string Seconds(long long frames);
    // The syntax, for --help texts.
    static const char* Help();
};
