#pragma once
// A small streaming JSON writer for `info --json`: objects, arrays, strings
// (escaped), integers, decimals and booleans, with two-space indentation.
#include <cstdint>
#include <string>
#include <vector>

class LxCliJsonWriter {
public:
    LxCliJsonWriter& BeginObject();
    LxCliJsonWriter& EndObject();
    LxCliJsonWriter& BeginArray();
    LxCliJsonWriter& EndArray();
    // The name of the next member of the open object.
    LxCliJsonWriter& Key(const std::string& name);
    LxCliJsonWriter& String(const std::string& value);
    LxCliJsonWriter& Int(int64_t value);
    // Non-finite values are written as null (JSON has no NaN).
    LxCliJsonWriter& Double(double value, int decimals = 6);
    LxCliJsonWriter& Bool(bool value);

    const std::string& Text() const { return text; }
    static std::string Escape(const std::string& value);

private:
    void BeforeValue();
    void Close(char bracket);

    struct Level {
        bool first = true;
    };
    std::string text;
    std::vector<Level> levels;
    bool afterKey = false;
};
