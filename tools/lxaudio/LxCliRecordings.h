#pragma once
// How the tool describes the recordings that interrupted commands left in a
// project's working folder: which of them recovery can give back, when they
// were recorded (local time), and the one line that other commands print
// about them.
#include <cstdint>
#include <string>
#include <vector>
#include "LxAudioRecovery.h"

namespace LxCliRecordings {

// Recovery gives audio back from it.
bool HasAudio(const LxAudioInterruptedRecording& recording);
// A leftover that `lxaudio recover` has to deal with: it holds audio, or a
// journal too damaged to read (which recover reports before removing it).
// Anything else holds nothing the project lacks.
bool NeedsRecovery(const LxAudioLeftover& leftover);
// The recordings that recovery turns into clips, in the order it does (each
// leftover's recordings oldest first).
std::vector<LxAudioInterruptedRecording> WithAudio(const LxAudioLeftover& leftover);
// "2026-11-24 10:31:05" in local time, from milliseconds since 1970 (UTC).
std::string LocalTime(int64_t millisecondsSince1970);
// "cut off while recording" or "ended, not saved in the project".
std::string State(const LxAudioInterruptedRecording& recording);
// "1 interrupted recording of talk.lxp (24.300 s, recorded ...) is not in the
// project; 'lxaudio recover talk.lxp' adds it" (no "lxaudio: " in front).
std::string Notice(const std::string& project, const std::vector<LxAudioLeftover>& leftovers);

}  // namespace LxCliRecordings
