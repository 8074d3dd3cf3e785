#include "control/Paging.h"

#include <algorithm>

int ReducedStart(size_t listSize, int startIndex)
{
    if (listSize == 0) {
        return startIndex;
    }
    const long long size = static_cast<long long>(listSize);
    long long start = static_cast<long long>(startIndex) % size;
    if (start < 0) {
        start += size;
    }
    return static_cast<int>(start);
}

SBrowsePage BrowsePage(size_t listSize, int startIndex, int itemCount)
{
    int start = ReducedStart(listSize, startIndex);
    SBrowsePage page;
    if (static_cast<long long>(itemCount) < static_cast<long long>(listSize)) {
        page.currIndex = static_cast<uint32_t>(start);
    } else {
        start = 0;
    }
    // A non-positive page size sends no entries, also where start + itemCount
    // would wrap below zero.
    if (itemCount <= 0) {
        return page;
    }
    const uint32_t first = static_cast<uint32_t>(start);
    const uint32_t bound = first + static_cast<uint32_t>(itemCount);  // wraps as 32-bit unsigned
    if (first >= listSize || first >= bound) {
        return page;
    }
    page.begin = first;
    page.end = std::min<size_t>(listSize, bound);
    return page;
}

SSearchPage SearchPage(size_t listSize, int startIndex, int itemCount)
{
    const int start = ReducedStart(listSize, startIndex);
    SSearchPage page;
    const uint32_t count = static_cast<uint32_t>(itemCount);
    if (count < listSize) {
        page.currIndex = static_cast<uint32_t>(start);
        for (uint32_t k = 0; k < count; ++k) {
            page.positions.push_back((static_cast<size_t>(start) + k) % listSize);
        }
        return page;
    }
    for (size_t i = 0; i < listSize; ++i) {
        page.positions.push_back(i);
    }
    return page;
}
