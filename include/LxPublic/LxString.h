#pragma once
// A UTF-8 string. Paths and names are kept in UTF-8 everywhere; the platform
// layer converts to the operating system's encoding at the boundary.
#include <string>
#include <string_view>
#include "LxPublicExport.h"

class LXPUBLIC_API LxString {
public:
    LxString() = default;
    LxString(const char* utf8) : text(utf8 ? utf8 : "") {}
    LxString(std::string utf8) : text(std::move(utf8)) {}
    LxString(std::string_view utf8) : text(utf8) {}

    const char* c_str() const { return text.c_str(); }
    const std::string& str() const { return text; }
    int Length() const { return static_cast<int>(text.size()); }
    bool IsEmpty() const { return text.empty(); }

    LxString& Append(const LxString& other) { text += other.text; return *this; }
    // Appends the decimal form of value ("raw.lxa" + 2 -> "raw.lxa2").
    LxString& AppendNumber(long long value);

    LxString& operator+=(const LxString& other) { return Append(other); }
    friend LxString operator+(LxString a, const LxString& b) { a += b; return a; }
    friend bool operator==(const LxString& a, const LxString& b) { return a.text == b.text; }
    friend bool operator!=(const LxString& a, const LxString& b) { return a.text != b.text; }
    friend bool operator<(const LxString& a, const LxString& b) { return a.text < b.text; }

private:
    std::string text;
};
