#pragma once
// Files for the tool's tests: a scratch folder, WAV files written and read back
// sample by sample, PNG pictures decoded with libpng, raw bytes.
#include <png.h>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>
#include "WavWriter.h"

struct WavData {
    int formatTag = 0;
    int channels = 0;
    int rate = 0;
    int bits = 0;
    std::vector<int32_t> samples;  // 16-bit and 24-bit as integers; float scaled by 32768
    int Frames() const { return channels ? static_cast<int>(samples.size()) / channels : 0; }
};

struct PngPicture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;
    const uint8_t* At(int x, int y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

class CliFiles {
public:
    // A fresh folder under the system's temporary directory, removed with the object
    // (a random name; create_directory fails on one that is already there).
    CliFiles() {
        std::random_device seed;
        std::error_code error;
        const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
        for (int attempt = 0; attempt < 100 && dir_.empty() && !error; ++attempt) {
            const std::filesystem::path path = temporary / ("LxCliTest." + std::to_string(seed()) + std::to_string(seed()));
            if (std::filesystem::create_directory(path, error)) dir_ = path.string();
        }
    }
    ~CliFiles() {
        std::error_code ignored;
        if (!dir_.empty()) std::filesystem::remove_all(dir_, ignored);
    }
    CliFiles(const CliFiles&) = delete;
    CliFiles& operator=(const CliFiles&) = delete;

    const std::string& Dir() const { return dir_; }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }

    static std::vector<uint8_t> Read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    // Every file of a project (one file, or the files of its folder) with its bytes.
    static std::map<std::string, std::vector<uint8_t>> Snapshot(const std::string& path) {
        std::map<std::string, std::vector<uint8_t>> files;
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                files[entry.path().filename().string()] = Read(entry.path().string());
        } else {
            files[path] = Read(path);
        }
        return files;
    }
    static void Write(const std::string& path, const std::vector<uint8_t>& bytes) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    // A 16-bit PCM WAV file.
    static void WriteWav(const std::string& path, const std::vector<int16_t>& samples, int channels, int rate) {
        std::vector<uint8_t> data(samples.size() * 2);
        std::memcpy(data.data(), samples.data(), data.size());
        Write(path, WavWriter::Pcm(1, static_cast<uint16_t>(channels), static_cast<uint32_t>(rate), 16, data));
    }

    // The format and samples of a WAV file (empty when it is none).
    static WavData ReadWav(const std::string& path) {
        const std::vector<uint8_t> bytes = Read(path);
        if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) || std::memcmp(bytes.data() + 8, "WAVE", 4))
            return {};
        const WavWriter::Parsed parsed = WavWriter::Parse(bytes);
        WavData wav{parsed.tag, parsed.channels, parsed.rate, parsed.bits, {}};
        const std::vector<uint8_t>& d = parsed.data;
        const size_t step = static_cast<size_t>(wav.bits / 8);
        for (size_t i = 0; step >= 2 && i + step <= d.size(); i += step) {
            uint32_t v = 0;
            for (size_t b = 0; b < step; ++b) v |= static_cast<uint32_t>(d[i + b]) << (8 * b);
            float f = 0;
            std::memcpy(&f, &v, 4);
            wav.samples.push_back(wav.bits == 16   ? static_cast<int16_t>(v)
                                  : wav.bits == 24 ? static_cast<int32_t>(v << 8) >> 8
                                                   : static_cast<int32_t>(f * 32768.0f));
        }
        return wav;
    }

    static PngPicture ReadPng(const std::string& path) {
        PngPicture picture;
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&image, path.c_str())) return picture;
        image.format = PNG_FORMAT_RGB;
        std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
        if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) return picture;
        picture.width = static_cast<int>(image.width);
        picture.height = static_cast<int>(image.height);
        picture.rgb = std::move(rgb);
        return picture;
    }

private:
    std::string dir_;
};
