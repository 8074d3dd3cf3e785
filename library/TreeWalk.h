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

// Where a walk may read. kAnyFolder starts wherever its path leads (the
// library's own use); kSticksOnly starts only from a path ConfineToSticks
// accepts, any other being reported as a starting folder that cannot be
// opened, and from the mount folder it enters the two sticks alone. Below the
// start no walk follows a link, whatever the scope.
enum class EWalkScope { kAnyFolder, kSticksOnly };

// The folder walk behind CFileList::Scan and the storage index: the rules
// and the result are those described at CFileList::Scan; records go to
// `sink` and a starting folder that cannot be opened is reported through
// `status`.
bool WalkTree(const std::string& path, const std::string& searchText, bool recursive, bool withFolders, int dirLevel,
              IRecordSink& sink, CError& status, EWalkScope scope = EWalkScope::kAnyFolder);
