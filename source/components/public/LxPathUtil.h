#pragma once
// Conversion between the platform's UTF-8 path strings and std::filesystem
// paths (UTF-16 on Windows, bytes elsewhere).
#include <filesystem>
#include "LxPublic/LxString.h"

class LxPathUtil {
public:
    static std::filesystem::path ToNative(const LxString& path) {
        const char* text = path.c_str();
        return std::filesystem::path(std::u8string(reinterpret_cast<const char8_t*>(text),
                                                   reinterpret_cast<const char8_t*>(text) + path.Length()));
    }
    static LxString FromNative(const std::filesystem::path& path) {
        std::u8string text = path.u8string();
        return LxString(std::string(reinterpret_cast<const char*>(text.data()), text.size()));
    }
};
