#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Which records of a list of `listSize` one page of a browse reply carries.

// The page of getFileListUSB and getFileListByGroupID: records [begin, end).
struct SBrowsePage {
    uint32_t currIndex = 0;  // "currIndex"
    size_t begin = 0;
    size_t end = 0;
};

// startIndex is taken modulo the list size (negative counts from the end);
// a list that fits in itemCount is sent whole from 0. The page stops at the
// end of the list; a non-positive itemCount sends no entries.
SBrowsePage BrowsePage(size_t listSize, int startIndex, int itemCount);

// The page of the text search: it wraps around to the start of the list.
struct SSearchPage {
    uint32_t currIndex = 0;
    std::vector<size_t> positions;
};

// When itemCount (taken unsigned) is below the list size, itemCount records
// from startIndex modulo the size, wrapping; otherwise the whole list from 0.
SSearchPage SearchPage(size_t listSize, int startIndex, int itemCount);

// startIndex modulo listSize, in 0..listSize-1; unchanged for an empty list.
int ReducedStart(size_t listSize, int startIndex);
