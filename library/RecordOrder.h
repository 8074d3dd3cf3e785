#pragma once

#include <algorithm>

// The order of sorted record lists: folders first, then files, each run by
// name in byte order. It is done in exactly these three sorts, because
// records of equal names keep the order this sequence leaves them in (and
// the storage checksum depends on it); `isFolder` and `nameBefore` read the
// records, whatever their type, so every list sorts the same way.
template <typename Iterator, typename IsFolder, typename NameBefore>
void SortFoldersThenNames(Iterator begin, Iterator end, IsFolder isFolder, NameBefore nameBefore)
{
    using Record = decltype(*begin);
    std::sort(begin, end, [&isFolder](Record a, Record b) { return isFolder(a) && !isFolder(b); });
    const Iterator firstFile = std::find_if(begin, end, [&isFolder](Record record) { return !isFolder(record); });
    std::sort(begin, firstFile, nameBefore);
    std::sort(firstFile, end, nameBefore);
}
