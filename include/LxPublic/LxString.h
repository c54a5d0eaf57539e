#pragma once
// A UTF-8 string. Paths and names are kept in UTF-8 everywhere; the platform
// layer converts to the operating system's encoding at the boundary.
#include <string>
#include <string_view>
#include "LxPublicExport.h"

class LXPUBLIC_API LxString {
public:
    LxString() = default;
    LxString(const char* text) : text_(text ? text : "") {}
    LxString(std::string text) : text_(std::move(text)) {}
    LxString(std::string_view text) : text_(text) {}

    const char* c_str() const { return text_.c_str(); }
    const std::string& str() const { return text_; }
    int Length() const { return static_cast<int>(text_.size()); }
    bool IsEmpty() const { return text_.empty(); }

    LxString& Append(const LxString& other) { text_ += other.text_; return *this; }
    // Appends the decimal form of value ("raw.lxa" + 2 -> "raw.lxa2").
    LxString& AppendNumber(long long value);

    LxString& operator+=(const LxString& other) { return Append(other); }
    friend LxString operator+(LxString a, const LxString& b) { a += b; return a; }
    friend bool operator==(const LxString& a, const LxString& b) { return a.text_ == b.text_; }
    friend bool operator!=(const LxString& a, const LxString& b) { return a.text_ != b.text_; }
    friend bool operator<(const LxString& a, const LxString& b) { return a.text_ < b.text_; }

private:
    std::string text_;
};
