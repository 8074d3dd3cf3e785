#pragma once

#include "core/Error.h"
#include "library/File.h"
#include "library/FolderGroups.h"
#include "library/StorageIndex.h"

#include <cstdint>
#include <string>
#include <vector>

// What the player knows of the sticks' media: the storage index, the folder
// list last browsed (folder groups), the stick group 0 stands for, and
// whether the last browse asked for the deepest level. Plain state with no
// lock: its owner guards it. Status goes to the CError the caller passes.
class CMediaLibrary {
public:
    const CStorageIndex& Index() const { return m_index; }
    bool AtMaxDepth() const { return m_atMaxDepth; }

    // Group 0 is the root of the stick last indexed; an id that is not a
    // folder of the index is taken as 0. -10 when a rebuilt list is empty.
    std::vector<CFile> ListGroup(uint32_t groupId, bool atMaxDepth, CError& status);
    // A path that does not lie on a stick lists as one the index does not
    // hold, so the reply cannot tell the two apart.
    std::vector<CFile> ListPath(const std::string& path, bool atMaxDepth, CError& status);
    // Audio files below `path` whose names hold `searchText`, walked anew.
    const std::vector<CFile>& Search(const std::string& path, const std::string& searchText);

    // The index goes before a new one is built (the device never holds two
    // at once); returns the count of removals the build starts from.
    uint64_t DropIndexForBuild();
    // Puts an index built aside in place, unless a stick removal came since
    // `removalsBefore`: it counts as having come after the build. The walk's
    // failure becomes `status`.
    void Install(CStorageIndex& built, const std::string& path, uint64_t removalsBefore, CError& status);
    // A stick went away: the index and the folder list are emptied.
    void ForgetAfterRemoval();

    // The built-in mount point of the stick last indexed, as a system path
    // (the first stick before any index).
    std::string RootPath() const;

private:
    std::vector<CFile> ListFolder(const CStorageIndex& index, const std::string& folderPath, CError& status);

    CStorageIndex m_index;
    // Stick removals so far: each empties the index, so an index whose build
    // saw one go by is stale and is not put in place.
    uint64_t m_removals = 0;
    // Holds m_usbFileList, the folder last browsed, and the root of group 0.
    CFolderGroups m_groups;
    bool m_atMaxDepth = false;
};
