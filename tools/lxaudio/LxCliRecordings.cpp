#include "LxCliRecordings.h"

#include <ctime>
#include "LxCliUnits.h"
#include "LxPublic/LxClock.h"

namespace LxCliRecordings {

bool HasAudio(const LxAudioInterruptedRecording& recording) { return recording.readable && recording.frames > 0; }

bool NeedsRecovery(const LxAudioLeftover& leftover) {
    for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
        if (HasAudio(recording) || !recording.readable) return true;
    }
    return false;
}

std::vector<LxAudioInterruptedRecording> WithAudio(const LxAudioLeftover& leftover) {
    std::vector<LxAudioInterruptedRecording> found;
    for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
        if (HasAudio(recording)) found.push_back(recording);
    }
    return found;
}

std::string LocalTime(int64_t millisecondsSince1970) {
    std::tm local{};
    if (!LxGetLocalTime(millisecondsSince1970, local)) return "an unknown time";
    char text[32];
    if (std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0) return "an unknown time";
    return text;
}

std::string State(const LxAudioInterruptedRecording& recording) {
    if (!recording.readable) return "damaged journal, nothing can be read";
    return recording.ended ? "ended, not saved in the project" : "cut off while recording";
}

std::string Notice(const std::string& project, const std::vector<LxAudioLeftover>& leftovers) {
    int count = 0;
    int damaged = 0;
    long long frames = 0;
    int64_t first = 0;
    for (const LxAudioLeftover& leftover : leftovers) {
        for (const LxAudioInterruptedRecording& recording : leftover.recordings) {
            if (HasAudio(recording)) {
                if (count == 0 || recording.startTimeMS < first) first = recording.startTimeMS;
                ++count;
                frames += recording.frames;
            } else if (!recording.readable) {
                ++damaged;
            }
        }
    }
    std::string line;
    if (count > 0) {
        line = std::to_string(count) + " interrupted recording" + (count == 1 ? "" : "s") + " of " + project + " (" +
               LxCliUnits::Seconds(frames) + (count == 1 ? ", recorded " : " in all, the first recorded ") +
               LocalTime(first) + ") " + (count == 1 ? "is" : "are") + " not in the project";
        if (damaged > 0) line += ", and " + std::to_string(damaged) + " cannot be read";
    } else {
        line = std::to_string(damaged) + " interrupted recording" + (damaged == 1 ? "" : "s") + " of " + project +
               " cannot be read";
    }
    line += "; 'lxaudio recover " + project + "' " +
            (count > 0 ? std::string(count == 1 ? "adds it" : "adds them") + " to the project"
                       : std::string("removes what is left"));
    return line;
}

}  // namespace LxCliRecordings
