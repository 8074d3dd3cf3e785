#include "library/FolderGroups.h"

const CFileList& CFolderGroups::ListFolder(const CFileList& index, const std::string& folderPath)
{
    if (IsCached(folderPath)) {
        return m_usbFileList;
    }
    m_usbFileList.Clear();
    m_groupPath = folderPath;
    m_groupDirty = false;
    for (const CFile& file : index.m_files) {
        if (file.m_path == folderPath) {
            m_usbFileList.m_files.push_back(file);
        }
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
