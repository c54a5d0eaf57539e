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
    if (afterKey) {
        afterKey = false;
        return;
    }
    if (levels.empty()) return;
    if (!levels.back().first) text += ",";
    levels.back().first = false;
    text += "\n" + std::string(levels.size() * 2, ' ');
}

LxCliJsonWriter& LxCliJsonWriter::BeginObject() {
    BeforeValue();
    text += "{";
    levels.push_back({});
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::BeginArray() {
    BeforeValue();
    text += "[";
    levels.push_back({});
    return *this;
}

void LxCliJsonWriter::Close(char bracket) {
    bool empty = levels.empty() || levels.back().first;
    if (!levels.empty()) levels.pop_back();
    if (!empty) text += "\n" + std::string(levels.size() * 2, ' ');
    text += bracket;
    if (levels.empty()) text += "\n";
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
    text += Escape(name) + ": ";
    afterKey = true;
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::String(const std::string& value) {
    BeforeValue();
    text += Escape(value);
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Int(int64_t value) {
    BeforeValue();
    text += std::to_string(value);
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Double(double value, int decimals) {
    BeforeValue();
    if (!std::isfinite(value)) {
        text += "null";
        return *this;
    }
    char number[64];
    std::snprintf(number, sizeof number, "%.*f", decimals, value);
    text += number;
    return *this;
}

LxCliJsonWriter& LxCliJsonWriter::Bool(bool value) {
    BeforeValue();
    text += value ? "true" : "false";
    return *this;
}
