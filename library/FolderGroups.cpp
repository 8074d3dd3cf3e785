#include "library/FolderGroups.h"

bool CFolderGroups::BeginRebuild(const std::string& folderPath)
{
    if (IsCached(folderPath)) {
        return false;
    }
    m_usbFileList.Clear();
    m_groupPath = folderPath;
    m_groupDirty = false;
    return true;
}

const CFileList& CFolderGroups::EndRebuild()
{
    if (!m_usbFileList.Empty()) {
        m_usbFileList.Sort();
    }
    return m_usbFileList;
}

const CFileList& CFolderGroups::ListFolder(const CFileList& index, const std::string& folderPath)
{
    if (!BeginRebuild(folderPath)) {
        return m_usbFileList;
    }
    for (const CFile& file : index.m_files) {
        if (file.m_path == folderPath) {
            m_usbFileList.m_files.push_back(file);
        }
    }
    return EndRebuild();
}

const CFileList& CFolderGroups::ListFolder(const CStorageIndex& index, const std::string& folderPath)
{
    if (!BeginRebuild(folderPath)) {
        return m_usbFileList;
    }
    const CStorageIndex::SChildren children = index.ChildrenOf(folderPath);
    m_usbFileList.m_files.reserve(children.size());
    for (const uint32_t position : children) {
        m_usbFileList.m_files.push_back(index.At(position));
    }
    return EndRebuild();
}

void CFolderGroups::Clear()
{
    m_usbFileList.Clear();
    MarkDirty();
}
