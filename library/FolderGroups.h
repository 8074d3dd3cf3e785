#pragma once

#include "library/FileList.h"

#include <string>

// The content of one folder of the storage index, derived from the index
// without reading the disk and cached by folder path. m_usbFileList holds the
// folder last asked for; m_groupDirty forces a rebuild after the index changed.
class CFolderGroups {
public:
    // The records of `index` whose path is exactly `folderPath`, sorted;
    // the cached list when the path is unchanged and the cache is clean.
    const CFileList& ListFolder(const CFileList& index, const std::string& folderPath);

    // Must be called whenever the index is rebuilt or emptied.
    void MarkDirty() { m_groupDirty = true; }

    CFileList m_usbFileList;
    std::string m_groupPath;
    bool m_groupDirty = true;
};
