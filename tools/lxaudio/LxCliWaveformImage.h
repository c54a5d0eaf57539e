#pragma once
// A clip's waveform as a picture: the thumbnail points of the clip (the minimum
// and maximum of every 90 frames) spread over the image's width, each pixel
// column filled from the lowest minimum to the highest maximum of the points it
// covers. White background, a grey zero line, the waveform in blue. Written as
// an 8-bit RGB PNG with libpng.
#include <cstdint>
#include <string>
#include <vector>

class LxCliWaveformImage {
public:
    static constexpr uint8_t kBackground[3] = {255, 255, 255};
    static constexpr uint8_t kZeroLine[3] = {190, 190, 190};
    static constexpr uint8_t kWave[3] = {30, 90, 200};

    LxCliWaveformImage(int imageWidth, int imageHeight);

    // points: the thumbnail, low 16 bits the minimum, high 16 bits the maximum.
    void Draw(const std::vector<uint32_t>& points);
    // Writes the PNG to path; false (with why) on failure.
    bool WritePng(const std::string& path, std::string& why) const;

    // Row of a sample value: 32767 at the top row, -32768 at the bottom row.
    int RowOf(int sample) const;
    const std::vector<uint8_t>& Pixels() const { return pixels; }

private:
    void Put(int x, int y, const uint8_t colour[3]);

    int width;
    int height;
    std::vector<uint8_t> pixels;
};
