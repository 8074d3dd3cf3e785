#include "library/FileList.h"

#include "library/RecordOrder.h"
#include "library/TreeWalk.h"

namespace {

// Collects the walk's records as file records.
class CRecordVector final : public IRecordSink {
public:
    explicit CRecordVector(std::vector<CFile>& files) : m_files(files) {}

    void Add(uint32_t id, const std::string& name, const std::string& path, bool isFolder) override
    {
        m_files.emplace_back(id, name, path, isFolder);
    }

    bool HasRecords() const override { return !m_files.empty(); }

private:
    std::vector<CFile>& m_files;
};

}  // namespace

void CFileList::Clear()
{
    m_files.clear();
    m_rootPath.clear();
    ClearError();
}

bool CFileList::Scan(const std::string& path, const std::string& searchText, bool recursive, bool withFolders,
                     bool flag, int dirLevel, EWalkScope scope)
{
    Clear();
    m_rootPath = path;
    m_flag = flag;
    CRecordVector records(m_files);
    const bool found = WalkTree(path, searchText, recursive, withFolders, dirLevel, records, *this, scope);
    if (found) {
        Sort();
    }
    return found;
}

void CFileList::Sort()
{
    SortFoldersThenNames(
        m_files.begin(), m_files.end(), [](const CFile& file) { return file.m_isFolder; },
        [](const CFile& a, const CFile& b) { return a.m_name < b.m_name; });
}

CFile CFileList::FindById(uint32_t id) const
{
    for (const CFile& file : m_files) {
        if (file.m_id == id) {
            return file;
        }
    }
    return CFile::Root();
}
