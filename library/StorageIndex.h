#pragma once

#include "library/FileList.h"

#include <cstdint>
#include <string>

// Rebuilds `index` with every folder and audio file below `path`; true when
// anything was found.
bool BuildStorageIndex(CFileList& index, const std::string& path);

// zlib CRC-32 over the records' ids, 4 bytes little-endian each, in list
// order; 0 for an empty index.
uint32_t StorageIndexCrc32(const CFileList& index);
