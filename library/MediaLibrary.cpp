#include "library/MediaLibrary.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "core/UsbSticks.h"
#include "library/StickPaths.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";

// The built-in mount point of the stick an indexed path belongs to: the
// second stick for its mount point and anything below it, else the first.
const char* StickOf(const std::string& indexedPath)
{
    const std::string second = SystemPath(kSecondStick.mountPoint);
    const std::string path = StripTrailingSlashes(indexedPath);
    const bool onSecond = path.compare(0, second.size(), second) == 0 &&
                          (path.size() == second.size() || path[second.size()] == '/');
    return (onSecond ? kSecondStick : kFirstStick).mountPoint;
}
}  // namespace

// The folder's records from the index, cached by path. Only a rebuilt empty
// list sets -10 (and prints it): a folder answered from the cache keeps the
// status the caller cleared, so asking again reads as success.
std::vector<CFile> CMediaLibrary::ListFolder(const CStorageIndex& index, const std::string& folderPath,
                                             CError& status)
{
    const bool rebuilt = !m_groups.IsCached(folderPath);
    const CFileList& folder = m_groups.ListFolder(index, folderPath);
    if (rebuilt && folder.Empty()) {
        status.SetError("No Items In This Group!", -10);
    }
    return folder.m_files;
}

std::vector<CFile> CMediaLibrary::ListGroup(uint32_t groupId, bool atMaxDepth, CError& status)
{
    m_atMaxDepth = atMaxDepth;
    std::string folderPath = RootPath();
    if (groupId != 0) {
        const CFile group = m_index.FindById(groupId);
        if (group.m_id != groupId || !group.m_isFolder) {
            LOG(LOG_WARN, "_getFileListByGroupID received an invalid groupId so we are just going to use root\n");
        } else {
            folderPath = group.m_path + "/" + group.m_name;
        }
    }
    return ListFolder(m_index, folderPath, status);
}

std::vector<CFile> CMediaLibrary::ListPath(const std::string& path, bool atMaxDepth, CError& status)
{
    static const CStorageIndex kNothingIndexed;
    m_atMaxDepth = atMaxDepth;
    return ListFolder(ConfineToSticks(path) ? m_index : kNothingIndexed, path, status);
}

const std::vector<CFile>& CMediaLibrary::Search(const std::string& path, const std::string& searchText)
{
    m_groups.m_usbFileList.Scan(path, searchText, true, true, false, 0, EWalkScope::kSticksOnly);
    // The folder list now holds search results, not the last folder's content.
    m_groups.MarkDirty();
    return m_groups.m_usbFileList.m_files;
}

uint64_t CMediaLibrary::DropIndexForBuild()
{
    m_index.Clear();
    m_groups.MarkDirty();
    return m_removals;
}

void CMediaLibrary::Install(CStorageIndex& built, const std::string& path, uint64_t removalsBefore,
                            CError& status)
{
    if (built.m_errorCode != 0) {
        // It was printed once already.
        status.m_errorCode = built.m_errorCode;
        status.m_errorText = built.m_errorText;
    }
    if (m_removals == removalsBefore) {
        m_index.Swap(built);
    }
    m_groups.MarkDirty();
    m_groups.m_rootPath = StickOf(path);
}

void CMediaLibrary::ForgetAfterRemoval()
{
    m_index.Clear();
    ++m_removals;
    m_groups.m_usbFileList.Clear();
    m_groups.MarkDirty();
}

std::string CMediaLibrary::RootPath() const
{
    const std::string& root = m_groups.m_rootPath;
    return SystemPath(root.empty() ? kFirstStick.mountPoint : root);
}
