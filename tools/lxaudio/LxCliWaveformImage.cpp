#include "LxCliWaveformImage.h"

#include <png.h>
#include <algorithm>
#include <cstdio>

LxCliWaveformImage::LxCliWaveformImage(int imageWidth, int imageHeight)
    : width(imageWidth),
      height(imageHeight),
      pixels(static_cast<size_t>(imageWidth) * static_cast<size_t>(imageHeight) * 3) {}

int LxCliWaveformImage::RowOf(int sample) const {
    long long fromTop = 32767LL - sample;  // 0 .. 65535
    return static_cast<int>(fromTop * (height - 1) / 65535);
}

void LxCliWaveformImage::Put(int x, int y, const uint8_t colour[3]) {
    size_t at = (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3;
    pixels[at] = colour[0];
    pixels[at + 1] = colour[1];
    pixels[at + 2] = colour[2];
}

void LxCliWaveformImage::Draw(const std::vector<uint32_t>& points) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) Put(x, y, kBackground);
    const int zeroRow = RowOf(0);
    for (int x = 0; x < width; ++x) Put(x, zeroRow, kZeroLine);
    const long long n = static_cast<long long>(points.size());
    if (n == 0) return;
    for (int x = 0; x < width; ++x) {
        // Points [first, last) belong to column x; a short clip repeats points.
        long long first = x * n / width;
        long long last = std::max(first + 1, (x + 1) * n / width);
        int low = 32767;
        int high = -32768;
        for (long long i = first; i < last && i < n; ++i) {
            uint32_t point = points[static_cast<size_t>(i)];
            low = std::min(low, static_cast<int>(static_cast<int16_t>(point & 0xFFFF)));
            high = std::max(high, static_cast<int>(static_cast<int16_t>(point >> 16)));
        }
        if (low > high) continue;
        for (int y = RowOf(high); y <= RowOf(low); ++y) Put(x, y, kWave);
    }
}

bool LxCliWaveformImage::WritePng(const std::string& path, std::string& why) const {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    if (!png_image_write_to_file(&image, path.c_str(), 0, pixels.data(), width * 3, nullptr)) {
        why = image.message[0] ? image.message : "libpng could not write the file";
        std::remove(path.c_str());
        return false;
    }
    return true;
}
