// The player's media library operations: folder lists by group or path,
// the text search, the storage index and its checksum (the state itself is
// library/MediaLibrary.h).
#include "player/UsbMediaPlayer.h"

#include "library/StorageIndex.h"

namespace {
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

std::vector<CFile> CUsbMediaPlayer::_getFileListByGroupIDLocked(uint32_t groupId, bool atMaxDepth)
{
    ClearError();
    return m_library.ListGroup(groupId, atMaxDepth, *this);
}

std::vector<CFile> CUsbMediaPlayer::GetFileListByPathLocked(const std::string& path, bool atMaxDepth)
{
    ClearError();
    return m_library.ListPath(path, atMaxDepth, *this);
}

std::vector<CFile> CUsbMediaPlayer::SearchFilesLocked(const std::string& path, const std::string& searchText)
{
    RefreshClientsLocked();
    ClearError();
    return m_library.Search(path, searchText);
}

SPlayerOutcome<bool> CUsbMediaPlayer::IndexStorageWithStatus(const std::string& path)
{
    SPlayerOutcome<uint64_t> start{};
    {
        const PlayerLock lock(m_playerMutex);
        start = {m_library.DropIndexForBuild(), m_errorCode, GetErrorText()};
    }
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
    m_library.Install(built, path, start.value, *this);
    return outcome;
}

uint32_t CUsbMediaPlayer::GetStorageCrc32()
{
    const PlayerLock lock(m_playerMutex);
    return StorageIndexCrc32(m_library.Index());
}

CStorageIndex CUsbMediaPlayer::StorageIndexCopy()
{
    const PlayerLock lock(m_playerMutex);
    return m_library.Index();
}
