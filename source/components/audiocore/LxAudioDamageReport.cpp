#include "LxAudioDamageReport.h"

#include <cstdint>

std::string LxAudioDamageReport::Describe(const LxAudioDamage& damage) {
    std::string where;
    if (!damage.file.empty()) {
        where = damage.file;
    } else if (!damage.member.empty()) {
        where = damage.member;
        if (damage.chunk > 0) {
            const int64_t first = int64_t{damage.chunk - 1} * 1048576;
            where += ", chunk " + std::to_string(damage.chunk) + " (bytes " + std::to_string(first) + " to " +
                     std::to_string(first + 1048575) + ")";
        }
    } else {
        where = "store";
    }
    return where + ": " + damage.what;
}

std::string LxAudioDamageReport::Summary() const {
    std::string text;
    for (const LxAudioDamage& finding : damage) text += Describe(finding) + "\n";
    for (const auto& [clipID, why] : damagedClips) text += "clip " + std::to_string(clipID) + ": " + why + "\n";
    return text;
}
