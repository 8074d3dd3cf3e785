#pragma once

#include "core/Error.h"
#include "library/File.h"
#include "library/TreeWalk.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The storage index: every folder and audio file below a storage path, in
// the order a sorted CFileList scan of that path leaves them, kept compact
// (each folder path once, the names back to back, 32-bit indices) and with
// a map from each folder to its records, so a folder's content is found in
// time proportional to the folder. Records are handed out as CFile values.
// A failure to open the storage path is reported through the index's own
// status.
class CStorageIndex : public virtual CError {
public:
    // The positions of one folder's records, in index order.
    struct SChildren {
        const uint32_t* first = nullptr;
        const uint32_t* last = nullptr;
        const uint32_t* begin() const { return first; }
        const uint32_t* end() const { return last; }
        size_t size() const { return static_cast<size_t>(last - first); }
        bool empty() const { return first == last; }
    };

    // Destroys all records, forgets the path, clears the status.
    void Clear();

    // Exchanges records, path and status with `other`, so that an index built
    // aside can be put in place without copying it.
    void Swap(CStorageIndex& other) noexcept;

    // The order of the records: that of a sorted scan, or the walk's own
    // for a reader that only goes folder by folder (FolderRecords) and needs
    // no checksum, and so not the cost of sorting.
    enum class EOrder { kScan, kWalk };

    // Replaces the index with every folder and audio file below `path`
    // (the walk and order of CFileList::Scan(path, "", true, true, false, 0,
    // scope)); true when anything was found.
    bool Build(const std::string& path, EWalkScope scope = EWalkScope::kAnyFolder, EOrder order = EOrder::kScan);

    size_t Size() const { return m_ids.size(); }
    bool Empty() const { return m_ids.empty(); }

    // The record at `position` (less than Size()).
    CFile At(size_t position) const;

    // Every record, in index order.
    std::vector<CFile> Records() const;

    // A copy of the first record with `id`, or the root record.
    CFile FindById(uint32_t id) const;

    // The records' ids in index order.
    const std::vector<uint32_t>& Ids() const { return m_ids; }

    // The positions of the records whose path is exactly `folderPath` (no
    // normalising), in index order; none for a folder without records.
    SChildren ChildrenOf(const std::string& folderPath) const;

    // The folders holding records, in path order: the path of the n-th
    // (n < FolderCount()) and the positions of its records, in index order.
    // With NameAt and IsFolderAt they let a reader go folder by folder
    // without a CFile per record.
    size_t FolderCount() const { return m_foldersByPath.size(); }
    const std::string& FolderPath(size_t n) const { return m_folders[m_foldersByPath[n]]; }
    SChildren FolderRecords(size_t n) const;
    std::string_view NameAt(size_t position) const
    {
        return std::string_view(m_names).substr(m_records[position].nameOffset, m_records[position].nameLength);
    }
    bool IsFolderAt(size_t position) const { return (m_records[position].folderAndFlag & kFolderFlag) != 0; }

    // The path the last build started from; "" after Clear.
    const std::string& RootPath() const { return m_rootPath; }

private:
    // One record without its id: where its name lies in m_names and which
    // folder holds it (an index into m_folders, the top bit flags a folder).
    struct SRecord {
        uint32_t nameOffset;
        uint32_t nameLength;
        uint32_t folderAndFlag;
    };
    static constexpr uint32_t kFolderFlag = 0x80000000u;

    friend class CIndexBuilder;

    std::vector<uint32_t> m_ids;          // in index order
    std::vector<SRecord> m_records;       // in index order
    std::string m_names;                  // every name, back to back
    std::vector<std::string> m_folders;   // each distinct folder path once
    std::vector<uint32_t> m_foldersByPath;  // m_folders' indices ordered by path
    std::vector<uint32_t> m_childStart;   // per folder, its run in m_children; one more at the end
    std::vector<uint32_t> m_children;     // positions, grouped by folder, in index order
    std::string m_rootPath;
};

// Rebuilds `index` with every folder and audio file below `path`; true when
// anything was found.
bool BuildStorageIndex(CStorageIndex& index, const std::string& path, EWalkScope scope = EWalkScope::kAnyFolder,
                       CStorageIndex::EOrder order = CStorageIndex::EOrder::kScan);

// zlib CRC-32 over the records' ids, 4 bytes little-endian each, in index
// order; 0 for an empty index.
uint32_t StorageIndexCrc32(const CStorageIndex& index);
