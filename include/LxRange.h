#pragma once
// A half-open span [start, end) of byte positions, used for the data and
// thumbnail ranges of a page inside the store's data members.

#include <climits>

struct LxRange {
    int start = 0;
    int end = 0;

    // Ranges read from a damaged store can hold any two ints: their difference
    // saturates instead of overflowing (every caller clamps it to a page).
    int Size() const {
        const long long size = static_cast<long long>(end) - start;
        return size > INT_MAX ? INT_MAX : size < INT_MIN ? INT_MIN : static_cast<int>(size);
    }
    bool IsEmpty() const { return end <= start; }
    friend bool operator==(const LxRange& a, const LxRange& b) { return a.start == b.start && a.end == b.end; }
    friend bool operator!=(const LxRange& a, const LxRange& b) { return !(a == b); }
};
