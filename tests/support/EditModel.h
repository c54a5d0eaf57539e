#pragma once
// An independent model of what an edited clip must sound like: every sample of
// the clip with the gain the edits put on it. Edits are applied to the model
// with plain vector operations, and the expected PCM follows from the gain
// arithmetic of a volume effect (scale, saturate, truncate).
#include <algorithm>
#include <cstdint>
#include <vector>

// A sample under a gain: scaled (unless the gain is one), saturated, truncated.
inline int16_t Scaled(int16_t s, float gain) {
    float x = static_cast<float>(s);
    if (gain != 1.0f) x *= gain;
    return static_cast<int16_t>(std::clamp(x, -32768.0f, 32767.0f));
}

struct EditModel {
    struct Sample {
        int16_t value;
        float gain;
    };
    std::vector<Sample> samples;  // mono

    static EditModel Of(const std::vector<int16_t>& pcm, float gain = 1.0f) {
        EditModel m;
        for (int16_t s : pcm) m.samples.push_back({s, gain});
        return m;
    }
    int Frames() const { return static_cast<int>(samples.size()); }
    // The stretch (start, end) is samples [start, end).
    void Delete(int start, int end) { samples.erase(samples.begin() + start, samples.begin() + end); }
    void Insert(int position, const EditModel& from, int start, int end) {
        std::vector<Sample> piece(from.samples.begin() + start, from.samples.begin() + end);
        samples.insert(samples.begin() + std::min(position, Frames()), piece.begin(), piece.end());
    }
    void Silence(int position, int frames) {
        samples.insert(samples.begin() + std::min(position, Frames()), static_cast<size_t>(frames), Sample{0, 1.0f});
    }
    void Gain(int start, int end, float gain) {
        for (int i = start; i < end; ++i) samples[static_cast<size_t>(i)].gain *= gain;
    }
    std::vector<int16_t> Pcm() const {
        std::vector<int16_t> out;
        out.reserve(samples.size());
        for (const Sample& s : samples) out.push_back(Scaled(s.value, s.gain));
        return out;
    }
};
