#pragma once
// A position inside a clip: which of its page ranges, which page, and the byte
// offset of the frame inside that page. {-1, -1, -1} is the invalid position.

struct LxPageTranslation {
    int rangeIndex = -1;
    int page = -1;
    int pageOffset = -1;

    bool IsValid() const { return rangeIndex != -1; }
    friend bool operator==(const LxPageTranslation& a, const LxPageTranslation& b) {
        return a.rangeIndex == b.rangeIndex && a.page == b.page && a.pageOffset == b.pageOffset;
    }
};
