// Placeholder bodies, replaced as the subsystem is built.
#include "library/FileList.h"

void CFileList::Clear() { m_files.clear(); }
bool CFileList::Scan(const std::string&, const std::string&, bool, bool, bool, int) { return false; }
void CFileList::Sort() {}
CFile CFileList::FindById(uint32_t) const { return CFile::Root(); }
