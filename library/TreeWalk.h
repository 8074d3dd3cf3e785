#pragma once

#include "core/Error.h"

#include <cstdint>
#include <string>

// Receives the records of a folder walk in walk order. `path` is the folder
// that holds the entry exactly as the walk read it (the starting path may end
// in "/"); `id` is already the hash of path + name.
class IRecordSink {
public:
    virtual void Add(uint32_t id, const std::string& name, const std::string& path, bool isFolder) = 0;
    virtual bool HasRecords() const = 0;

protected:
    ~IRecordSink() = default;
};

// The folder walk behind CFileList::Scan and the storage index: the rules
// and the result are those described at CFileList::Scan; records go to
// `sink` and a starting folder that cannot be opened is reported through
// `status`.
bool WalkTree(const std::string& path, const std::string& searchText, bool recursive, bool withFolders, int dirLevel,
              IRecordSink& sink, CError& status);
