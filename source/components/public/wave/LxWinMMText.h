#pragma once
// Names the wave API hands out (devices, mixer lines) come as UTF-16; LxString
// holds UTF-8.
#include <windows.h>

#include <string>
#include "LxPublic/LxString.h"

inline LxString LxWinMMUtf8(const WCHAR* text) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 1) return LxString();
    std::string out(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), bytes, nullptr, nullptr);
    out.resize(static_cast<size_t>(bytes - 1));
    return LxString(out);
}
