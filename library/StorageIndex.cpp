// Placeholder bodies, replaced as the subsystem is built.
#include "library/StorageIndex.h"

bool BuildStorageIndex(CFileList&, const std::string&) { return false; }
uint32_t StorageIndexCrc32(const CFileList&) { return 0; }
