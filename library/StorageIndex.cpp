#include "library/StorageIndex.h"

#include "library/RecordOrder.h"
#include "library/TreeWalk.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <utility>

// Collects the walk's records in the compact form, then puts them in the
// order of a sorted scan and maps each folder to its records.
class CIndexBuilder final : public IRecordSink {
public:
    explicit CIndexBuilder(CStorageIndex& index) : m_index(index) {}

    void Add(uint32_t id, const std::string& name, const std::string& path, bool isFolder) override
    {
        if (!m_hasLastPath || path != m_lastPath) {
            m_lastFolder = FolderOf(path);
            m_lastPath = path;
            m_hasLastPath = true;
        }
        const uint32_t flag = isFolder ? CStorageIndex::kFolderFlag : 0;
        m_entries.push_back(SEntry{id, static_cast<uint32_t>(m_index.m_names.size()),
                                   static_cast<uint32_t>(name.size()), m_lastFolder | flag});
        m_index.m_names += name;
    }

    bool HasRecords() const override { return !m_entries.empty(); }

    // Sorts (when the walk found anything, as the scan does) and stores the
    // records, then the folder map.
    void Finish(bool sort)
    {
        if (sort) {
            Sort();
        }
        m_index.m_names.shrink_to_fit();
        m_index.m_ids.reserve(m_entries.size());
        m_index.m_records.reserve(m_entries.size());
        for (const SEntry& entry : m_entries) {
            m_index.m_ids.push_back(entry.id);
            m_index.m_records.push_back(CStorageIndex::SRecord{entry.nameOffset, entry.nameLength, entry.folderAndFlag});
        }
        std::vector<SEntry>().swap(m_entries);
        MapFolders();
    }

private:
    struct SEntry {
        uint32_t id;
        uint32_t nameOffset;
        uint32_t nameLength;
        uint32_t folderAndFlag;
    };

    // The index of the folder path as records store it (without trailing
    // "/"), added when new.
    uint32_t FolderOf(const std::string& path)
    {
        std::string stripped = StripTrailingSlashes(path);
        const auto known = m_folderIds.find(stripped);
        if (known != m_folderIds.end()) {
            return known->second;
        }
        const auto folder = static_cast<uint32_t>(m_index.m_folders.size());
        m_folderIds.emplace(stripped, folder);
        m_index.m_folders.push_back(std::move(stripped));
        return folder;
    }

    void Sort()
    {
        const char* names = m_index.m_names.data();
        SortFoldersThenNames(
            m_entries.begin(), m_entries.end(),
            [](const SEntry& entry) { return (entry.folderAndFlag & CStorageIndex::kFolderFlag) != 0; },
            [names](const SEntry& a, const SEntry& b) {
                // The byte order of std::string's operator<.
                const int order = std::memcmp(names + a.nameOffset, names + b.nameOffset,
                                              std::min(a.nameLength, b.nameLength));
                return order != 0 ? order < 0 : a.nameLength < b.nameLength;
            });
    }

    void MapFolders()
    {
        CStorageIndex& index = m_index;
        const size_t folders = index.m_folders.size();
        index.m_childStart.assign(folders + 1, 0);
        for (const CStorageIndex::SRecord& record : index.m_records) {
            ++index.m_childStart[(record.folderAndFlag & ~CStorageIndex::kFolderFlag) + 1];
        }
        for (size_t folder = 0; folder < folders; ++folder) {
            index.m_childStart[folder + 1] += index.m_childStart[folder];
        }
        index.m_children.resize(index.m_records.size());
        std::vector<uint32_t> next(index.m_childStart.begin(), index.m_childStart.end() - 1);
        for (size_t position = 0; position < index.m_records.size(); ++position) {
            const uint32_t folder = index.m_records[position].folderAndFlag & ~CStorageIndex::kFolderFlag;
            index.m_children[next[folder]++] = static_cast<uint32_t>(position);
        }
        index.m_foldersByPath.resize(folders);
        for (size_t folder = 0; folder < folders; ++folder) {
            index.m_foldersByPath[folder] = static_cast<uint32_t>(folder);
        }
        std::sort(index.m_foldersByPath.begin(), index.m_foldersByPath.end(),
                  [&index](uint32_t a, uint32_t b) { return index.m_folders[a] < index.m_folders[b]; });
    }

    CStorageIndex& m_index;
    std::vector<SEntry> m_entries;
    std::unordered_map<std::string, uint32_t> m_folderIds;
    std::string m_lastPath;
    bool m_hasLastPath = false;
    uint32_t m_lastFolder = 0;
};

void CStorageIndex::Clear()
{
    std::vector<uint32_t>().swap(m_ids);
    std::vector<SRecord>().swap(m_records);
    std::string().swap(m_names);
    std::vector<std::string>().swap(m_folders);
    std::vector<uint32_t>().swap(m_foldersByPath);
    std::vector<uint32_t>().swap(m_childStart);
    std::vector<uint32_t>().swap(m_children);
    m_rootPath.clear();
    ClearError();
}

void CStorageIndex::Swap(CStorageIndex& other) noexcept
{
    m_ids.swap(other.m_ids);
    m_records.swap(other.m_records);
    m_names.swap(other.m_names);
    m_folders.swap(other.m_folders);
    m_foldersByPath.swap(other.m_foldersByPath);
    m_childStart.swap(other.m_childStart);
    m_children.swap(other.m_children);
    m_rootPath.swap(other.m_rootPath);
    std::swap(m_errorCode, other.m_errorCode);
    m_errorText.swap(other.m_errorText);
}

bool CStorageIndex::Build(const std::string& path, EWalkScope scope, EOrder order)
{
    Clear();
    m_rootPath = path;
    CIndexBuilder builder(*this);
    const bool found = WalkTree(path, "", true, true, 0, builder, *this, scope);
    builder.Finish(found && order == EOrder::kScan);
    return found;
}

CFile CStorageIndex::At(size_t position) const
{
    const SRecord& record = m_records[position];
    return CFile(m_ids[position], std::string(m_names, record.nameOffset, record.nameLength),
                 m_folders[record.folderAndFlag & ~kFolderFlag], (record.folderAndFlag & kFolderFlag) != 0);
}

std::vector<CFile> CStorageIndex::Records() const
{
    std::vector<CFile> records;
    records.reserve(Size());
    for (size_t position = 0; position < Size(); ++position) {
        records.push_back(At(position));
    }
    return records;
}

CFile CStorageIndex::FindById(uint32_t id) const
{
    const auto found = std::find(m_ids.begin(), m_ids.end(), id);
    if (found == m_ids.end()) {
        return CFile::Root();
    }
    return At(static_cast<size_t>(found - m_ids.begin()));
}

CStorageIndex::SChildren CStorageIndex::ChildrenOf(const std::string& folderPath) const
{
    const auto found = std::lower_bound(m_foldersByPath.begin(), m_foldersByPath.end(), folderPath,
                                        [this](uint32_t folder, const std::string& path) { return m_folders[folder] < path; });
    if (found == m_foldersByPath.end() || m_folders[*found] != folderPath) {
        return SChildren();
    }
    return FolderRecords(static_cast<size_t>(found - m_foldersByPath.begin()));
}

CStorageIndex::SChildren CStorageIndex::FolderRecords(size_t n) const
{
    const uint32_t folder = m_foldersByPath[n];
    return SChildren{m_children.data() + m_childStart[folder], m_children.data() + m_childStart[folder + 1]};
}

bool BuildStorageIndex(CStorageIndex& index, const std::string& path, EWalkScope scope, CStorageIndex::EOrder order)
{
    return index.Build(path, scope, order);
}

namespace {

uLong AddId(uLong crc, uint32_t id)
{
    const unsigned char bytes[4] = {
        static_cast<unsigned char>(id & 0xFF),
        static_cast<unsigned char>((id >> 8) & 0xFF),
        static_cast<unsigned char>((id >> 16) & 0xFF),
        static_cast<unsigned char>((id >> 24) & 0xFF),
    };
    return crc32(crc, bytes, sizeof bytes);
}

bool LittleEndianHost()
{
    const uint32_t probe = 1;
    unsigned char first = 0;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

}  // namespace

uint32_t StorageIndexCrc32(const CStorageIndex& index)
{
    const std::vector<uint32_t>& ids = index.Ids();
    uLong crc = crc32(0L, Z_NULL, 0);
    if (!LittleEndianHost()) {
        for (const uint32_t id : ids) {
            crc = AddId(crc, id);
        }
        return static_cast<uint32_t>(crc);
    }
    // The ids already lie in memory as the little-endian bytes the sum reads.
    constexpr size_t kChunkIds = 1u << 20;
    for (size_t first = 0; first < ids.size(); first += kChunkIds) {
        const size_t count = std::min(kChunkIds, ids.size() - first);
        crc = crc32(crc, reinterpret_cast<const Bytef*>(ids.data() + first), static_cast<uInt>(count * 4));
    }
    return static_cast<uint32_t>(crc);
}
