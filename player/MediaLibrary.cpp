// The player's media library operations: folder lists by group or path,
// the text search, the storage index and its checksum.
#include "player/UsbMediaPlayer.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "library/StickPaths.h"
#include "library/StorageIndex.h"
#include "core/UsbSticks.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;

// The folder's records from the index, cached by path. Only a rebuilt empty
// list sets -10 (and prints it): a folder answered from the cache keeps the
// status the caller cleared, so asking again reads as success.
std::vector<CFile> FolderList(CFolderGroups& groups, const CStorageIndex& index, CError& status,
                              const std::string& folderPath)
{
    const bool rebuilt = !groups.IsCached(folderPath);
    const CFileList& folder = groups.ListFolder(index, folderPath);
    if (rebuilt && folder.Empty()) {
        status.SetError("No Items In This Group!", -10);
    }
    return folder.m_files;
}

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

std::vector<CFile> CUsbMediaPlayer::_getFileListByGroupID(uint32_t groupId, bool atMaxDepth)
{
    const PlayerLock lock(m_playerMutex);
    return _getFileListByGroupIDLocked(groupId, atMaxDepth);
}

std::vector<CFile> CUsbMediaPlayer::_getFileListByGroupIDLocked(uint32_t groupId, bool atMaxDepth)
{
    ClearError();
    m_atMaxDepth = atMaxDepth;
    std::string folderPath = GetCurrentRootPathLocked();
    if (groupId != 0) {
        const CFile group = m_folderList.FindById(groupId);
        if (group.m_id != groupId || !group.m_isFolder) {
            LOG(LOG_WARN, "_getFileListByGroupID received an invalid groupId so we are just going to use root\n");
        } else {
            folderPath = group.m_path + "/" + group.m_name;
        }
    }
    return FolderList(m_folderGroups, m_folderList, *this, folderPath);
}

std::vector<CFile> CUsbMediaPlayer::GetFileListByPath(const std::string& path, bool atMaxDepth)
{
    const PlayerLock lock(m_playerMutex);
    return GetFileListByPathLocked(path, atMaxDepth);
}

// A path that does not lie on a stick is listed as one the index does not
// hold, so the reply cannot tell the two apart.
std::vector<CFile> CUsbMediaPlayer::GetFileListByPathLocked(const std::string& path, bool atMaxDepth)
{
    static const CStorageIndex kNothingIndexed;
    ClearError();
    m_atMaxDepth = atMaxDepth;
    const CStorageIndex& index = ConfineToSticks(path) ? m_folderList : kNothingIndexed;
    return FolderList(m_folderGroups, index, *this, path);
}

std::vector<CFile> CUsbMediaPlayer::SearchFiles(const std::string& path, const std::string& searchText)
{
    const PlayerLock lock(m_playerMutex);
    return SearchFilesLocked(path, searchText);
}

std::vector<CFile> CUsbMediaPlayer::SearchFilesLocked(const std::string& path, const std::string& searchText)
{
    RefreshClientsLocked();
    ClearError();
    m_folderGroups.m_usbFileList.Scan(path, searchText, true, true, false, 0, EWalkScope::kSticksOnly);
    // The folder list now holds search results, not m_groupPath's content.
    m_folderGroups.MarkDirty();
    return m_folderGroups.m_usbFileList.m_files;
}

SPlayerOutcome<bool> CUsbMediaPlayer::IndexStorageWithStatus(const std::string& path)
{
    const SPlayerOutcome<uint64_t> start = ClearStorageIndex();
    // A slow stick takes seconds to walk: the walk holds no player lock, so
    // progress reports, the end of a track and bus errors are handled
    // meanwhile. It still feeds the watchdog and ends early on a scan stop.
    CStorageIndex built;
    const bool found = BuildStorageIndex(built, path, EWalkScope::kSticksOnly);
    // The reply tells of the walk alone: its own failure, else the status as
    // it was when the index was asked for, not one a bus error set meanwhile.
    SPlayerOutcome<bool> outcome{found, start.code, start.message};
    if (built.m_errorCode != 0) {
        outcome.code = built.m_errorCode;
        outcome.message = built.GetErrorText();
    }
    const PlayerLock lock(m_playerMutex);
    InstallStorageIndexLocked(built, path, start.value);
    return outcome;
}

bool CUsbMediaPlayer::IndexStorage(const std::string& path)
{
    return IndexStorageWithStatus(path).value;
}

// A build always replaced the old index whole, so the old one goes first:
// the device never holds two indexes at once. Returns the removal count the
// build starts from, with the player's status at that moment.
SPlayerOutcome<uint64_t> CUsbMediaPlayer::ClearStorageIndex()
{
    const PlayerLock lock(m_playerMutex);
    m_folderList.Clear();
    m_folderGroups.MarkDirty();
    return {m_stickRemovals, m_errorCode, GetErrorText()};
}

// A stick removal (a platform event or a bus error) that came during the
// build emptied the index; it counts as having come after the build, so the
// index stays empty while the reply still tells what the walk found.
void CUsbMediaPlayer::InstallStorageIndexLocked(CStorageIndex& built, const std::string& path,
                                                uint64_t removalsBefore)
{
    if (built.m_errorCode != 0) {
        // The walk's failure becomes the player's status; it was printed
        // once already.
        m_errorCode = built.m_errorCode;
        m_errorText = built.m_errorText;
    }
    if (m_stickRemovals == removalsBefore) {
        m_folderList.Swap(built);
    }
    m_folderGroups.MarkDirty();
    m_folderGroups.m_rootPath = StickOf(path);
}

bool CUsbMediaPlayer::IndexDevice(const std::string& deviceName)
{
    if (deviceName != kFirstStick.deviceName) {
        return false;
    }
    return IndexStorage(SystemPath(kFirstStick.mountPoint));
}

uint32_t CUsbMediaPlayer::GetStorageCrc32()
{
    const PlayerLock lock(m_playerMutex);
    return StorageIndexCrc32(m_folderList);
}

std::string CUsbMediaPlayer::GetCurrentRootPath()
{
    const PlayerLock lock(m_playerMutex);
    return GetCurrentRootPathLocked();
}

std::string CUsbMediaPlayer::GetCurrentRootPathLocked()
{
    const std::string& root = m_folderGroups.m_rootPath;
    return SystemPath(root.empty() ? kFirstStick.mountPoint : root);
}
