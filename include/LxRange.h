#pragma once
// A half-open span [start, end) of byte positions, used for the data and
// thumbnail ranges of a page inside the store's data members.

struct LxRange {
    int start = 0;
    int end = 0;

    int Size() const { return end - start; }
    bool IsEmpty() const { return end <= start; }
    friend bool operator==(const LxRange& a, const LxRange& b) { return a.start == b.start && a.end == b.end; }
    friend bool operator!=(const LxRange& a, const LxRange& b) { return !(a == b); }
};
