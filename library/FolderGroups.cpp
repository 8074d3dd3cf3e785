// Placeholder bodies, replaced as the subsystem is built.
#include "library/FolderGroups.h"

const CFileList& CFolderGroups::ListFolder(const CFileList&, const std::string&) { return m_usbFileList; }
