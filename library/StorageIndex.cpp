#include "library/StorageIndex.h"

#include <zlib.h>

bool BuildStorageIndex(CFileList& index, const std::string& path)
{
    index.Clear();
    return index.Scan(path, "", true, true, false, 0);
}

uint32_t StorageIndexCrc32(const CFileList& index)
{
    uLong crc = crc32(0L, Z_NULL, 0);
    for (const CFile& file : index.m_files) {
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(file.m_id & 0xFF),
            static_cast<unsigned char>((file.m_id >> 8) & 0xFF),
            static_cast<unsigned char>((file.m_id >> 16) & 0xFF),
            static_cast<unsigned char>((file.m_id >> 24) & 0xFF),
        };
        crc = crc32(crc, bytes, sizeof bytes);
    }
    return static_cast<uint32_t>(crc);
}
