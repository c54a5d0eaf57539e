#include "LxCliJsonWriter.h"

#include <cmath>
#include <cstdio>

std::string LxCliJsonWriter::Escape(const std::string& value) {
    std::string out = "\"";
    for (unsigned char c : value) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char code[8];
                    std::snprintf(code, sizeof code, "\\u%04x", c);
                    out += code;
                } else {
                    out += static_cast<char>(c);  // UTF-8 passes through
                }
        }
    }
    return out + "\"";
}

void LxCliJsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (levels_.empty()) return;
    if (!levels_.back().first) text_ += ",";
    levels_.back().first = false;
    text_ += "\n" + std::string(levels_.size() * 2, ' ');
}

LxCliJsonWriter& LxCliJsonWriter::BeginObject() {
    BeforeValue();
    text_ += "{";
    levels_.push_back({});
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::BeginArray() {
    BeforeValue();
    text_ += "[";
    levels_.push_back({});
    return *this;
}

void LxCliJsonWriter::Close(char bracket) {
    bool empty = levels_.empty() || levels_.back().first;
    if (!levels_.empty()) levels_.pop_back();
    if (!empty) text_ += "\n" + std::string(levels_.size() * 2, ' ');
    text_ += bracket;
    if (levels_.empty()) text_ += "\n";
}

LxCliJsonWriter& LxCliJsonWriter::EndObject() {
    Close('}');
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::EndArray() {
    Close(']');
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Key(const std::string& name) {
    BeforeValue();
    text_ += Escape(name) + ": ";
    afterKey_ = true;
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::String(const std::string& value) {
    BeforeValue();
    text_ += Escape(value);
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Int(int64_t value) {
    BeforeValue();
    text_ += std::to_string(value);
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Double(double value, int decimals) {
    BeforeValue();
    if (!std::isfinite(value)) {
        text_ += "null";
        return *this;
    }
    char number[64];
    std::snprintf(number, sizeof number, "%.*f", decimals, value);
    text_ += number;
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Bool(bool value) {
    BeforeValue();
    text_ += value ? "true" : "false";
    return *this;
}
