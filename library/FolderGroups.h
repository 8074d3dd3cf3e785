#pragma once

#include "library/FileList.h"
#include "library/StorageIndex.h"

#include <string>

// The content of one folder of the storage index, derived from the index
// without reading the disk and cached by folder path. m_usbFileList holds the
// folder last asked for; m_groupDirty forces a rebuild after the index changed.
class CFolderGroups {
public:
    // True when ListFolder would answer `folderPath` from the cache.
    bool IsCached(const std::string& folderPath) const { return !m_groupDirty && folderPath == m_groupPath; }

    // The records of `index` whose path is exactly `folderPath`, sorted;
    // the cached list when the path is unchanged and the cache is clean.
    // Only the folder's own records are visited.
    const CFileList& ListFolder(const CStorageIndex& index, const std::string& folderPath);

    // Must be called whenever the index is rebuilt or emptied.
    void MarkDirty() { m_groupDirty = true; }

    // Empties the folder list (the stick went away) and marks the cache dirty.
    void Clear();

    CFileList m_usbFileList;
    std::string m_groupPath;
    bool m_groupDirty = true;
    // The mount point group 0 stands for, as its built-in path
    // ("/mnt/usb-stick1" or "/mnt/usb-stick2"): the stick the storage index
    // was last built from; empty before the first build.
    std::string m_rootPath;
};
