#include "library/FolderGroups.h"

const CFileList& CFolderGroups::ListFolder(const CStorageIndex& index, const std::string& folderPath)
{
    if (IsCached(folderPath)) {
        return m_usbFileList;
    }
    m_usbFileList.Clear();
    m_groupPath = folderPath;
    m_groupDirty = false;
    const CStorageIndex::SChildren children = index.ChildrenOf(folderPath);
    m_usbFileList.m_files.reserve(children.size());
    for (const uint32_t position : children) {
        m_usbFileList.m_files.push_back(index.At(position));
    }
    if (!m_usbFileList.Empty()) {
        m_usbFileList.Sort();
    }
    return m_usbFileList;
}

void CFolderGroups::Clear()
{
    m_usbFileList.Clear();
    MarkDirty();
}
