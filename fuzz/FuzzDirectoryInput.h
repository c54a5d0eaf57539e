#pragma once
// The fuzz input format of a store directory, shared by the directory target
// and the seed maker: records of a selector byte, a 16-bit little-endian length
// and that many bytes, each one file of the directory.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

struct DirectoryFile {
    std::string name;
    std::vector<uint8_t> bytes;
};

inline const char* const kMembers[5] = {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"};

// Selector s names member s % 5 with chunk number (s / 5) % 4: NAME0 (the
// count file) to NAME3; selectors from 240 on name the integrity record.
constexpr uint8_t kIntegritySelector = 240;
inline std::string DirectoryFileName(uint8_t selector) {
    if (selector >= kIntegritySelector) return "integrity.lxi";
    return std::string(kMembers[selector % 5]) + std::to_string((selector / 5) % 4);
}

inline std::vector<DirectoryFile> ParseDirectoryInput(const uint8_t* data, size_t size) {
    std::vector<DirectoryFile> files;
    size_t at = 0;
    while (at + 3 <= size && files.size() < 32) {
        const uint8_t selector = data[at];
        const size_t length = data[at + 1] | (size_t(data[at + 2]) << 8);
        at += 3;
        const size_t take = length < size - at ? length : size - at;
        files.push_back({DirectoryFileName(selector), std::vector<uint8_t>(data + at, data + at + take)});
        at += take;
    }
    return files;
}

inline void AppendDirectoryFile(std::vector<uint8_t>& out, uint8_t selector, const std::vector<uint8_t>& bytes) {
    out.push_back(selector);
    out.push_back(static_cast<uint8_t>(bytes.size()));
    out.push_back(static_cast<uint8_t>(bytes.size() >> 8));
    out.insert(out.end(), bytes.begin(), bytes.end());
}

}  // namespace fuzz
