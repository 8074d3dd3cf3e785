// Building the playlist for a chosen file, folder, id or the whole stick,
// and the shuffle order.
#include "player/UsbMediaPlayer.h"

#include "core/Logger.h"
#include "player/Navigation.h"

#include <cstdlib>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

// Collects the audio files around `target` into m_playlist and points
// m_index at it (see MatchPlaylist); none leaves m_index at kNoEntryId.
void CUsbMediaPlayer::BuildPlayListLocked(const CFile& target, bool fullUsb)
{
    CFileList scanned;
    const CFileList* source = &scanned;
    if (fullUsb) {
        LOG(LOG_INFO, "Full USB playlist\n");
        scanned.m_files = m_folderList.Records();
    } else if (m_atMaxDepth) {
        LOG(LOG_INFO, "At max depth, the file path is: %s\n", target.m_path.c_str());
        if (!target.m_path.empty()) {
            scanned.Scan(target.m_path, "", true, false, false, 0, EWalkScope::kSticksOnly);
        }
    } else {
        LOG(LOG_INFO, "Not at max depth\n");
        scanned.Scan(target.m_path, "", false, false, false, 0, EWalkScope::kSticksOnly);
    }
    m_index = kNoEntryId;
    m_playlistSize = 0;
    if (fullUsb && source->Empty()) {
        return;
    }
    SPlaylistMatch match = MatchPlaylist(source->m_files, target, [fullUsb](bool trueMatch) {
        if (fullUsb) {
            return;
        }
        if (trueMatch) {
            LOG(LOG_INFO, "File Found!");
        } else {
            LOG(LOG_INFO, "File Found using filename:\n");
        }
    });
    m_index = match.index;
    m_playlistSize = static_cast<uint32_t>(match.files.size());
    for (CFile& file : match.files) {
        m_playlist.m_files.push_back(std::move(file));
    }
}

bool CUsbMediaPlayer::PlayList(const CFile& target, bool fullUsb)
{
    const PlayerLock lock(m_playerMutex);
    return PlayListLocked(target, fullUsb);
}

bool CUsbMediaPlayer::PlayListLocked(const CFile& target, bool fullUsb)
{
    RefreshClientsLocked();
    ClearError();
    StopPlayingLocked();
    m_playlist.Clear();
    if (target.m_isFolder) {
        return PlayFolder(target);
    }
    BuildPlayListLocked(target, fullUsb);
    if (m_isShuffle) {
        ShuffleLocked();
    }
    if (m_index > m_folderList.Size()) {
        // The file is gone: play the whole stick instead.
        m_playlist.Clear();
        PlayAllSongsLocked(GetCurrentRootPathLocked());
    } else if (m_index < m_playlistSize && SetTrackLocked(m_playlist.m_files[m_index])) {
        PlayTrackLocked();
        if (m_isShuffle) {
            MoveToFrontOfShuffleOrderLocked(m_index);
        }
    }
    LOG(LOG_DEBUG, "Play list: %d\n", static_cast<int>(m_playlistSize));
    LOG(LOG_DEBUG, "m_index  : %d\n", static_cast<int32_t>(m_index));
    return m_errorCode == 0;
}

// Every audio file below the folder, from the first.
bool CUsbMediaPlayer::PlayFolder(const CFile& folder)
{
    m_playlist.Scan(folder.m_path + "/" + folder.m_name, "", true, false, false, 0, EWalkScope::kSticksOnly);
    if (m_playlist.m_errorCode != 0) {
        // The scanner has printed its failure; clients read it from the player.
        m_errorCode = m_playlist.m_errorCode;
        m_errorText = m_playlist.m_errorText;
        return false;
    }
    if (m_playlist.Empty()) {
        SetError("No media files found", -2);
        return false;
    }
    m_playlist.Sort();
    if (m_isShuffle) {
        ShuffleLocked();
    }
    m_playlistSize = static_cast<uint32_t>(m_playlist.Size());
    m_index = 0;
    SetTrackLocked(m_playlist.m_files[0]);
    PlayTrackLocked();
    if (m_isShuffle) {
        MoveToFrontOfShuffleOrderLocked(0);
    }
    return m_errorCode == 0;
}

// Asking for the file that is already current changes nothing.
bool CUsbMediaPlayer::PlayFileById(uint32_t id, bool fullUsb)
{
    const PlayerLock lock(m_playerMutex);
    return PlayFileByIdLocked(id, fullUsb);
}

bool CUsbMediaPlayer::PlayFileByIdLocked(uint32_t id, bool fullUsb)
{
    // A failed folder play clears m_playlist but leaves m_playlistSize
    // counting the old list, so the list's own size bounds the read too.
    const bool hasCurrent = m_index < m_playlistSize && m_index < m_playlist.Size();
    const CFile current = hasCurrent ? m_playlist.m_files[m_index] : CFile::Root();
    if (current.m_id != kNoEntryId && current.m_id == id) {
        return true;
    }
    return PlayListLocked(m_folderList.FindById(id), fullUsb);
}

// Plays from the first record of the storage index (usually the first
// top-level folder, played with everything below it).
bool CUsbMediaPlayer::PlayAllSongs(const std::string& rootPath)
{
    const PlayerLock lock(m_playerMutex);
    return PlayAllSongsLocked(rootPath);
}

bool CUsbMediaPlayer::PlayAllSongsLocked(const std::string&)
{
    ClearError();
    if (m_folderList.Empty()) {
        SetError("No Songs on USB!", -6);
    } else {
        const CFile first = m_folderList.At(0);
        PlayListLocked(first, true);
    }
    return m_errorCode == 0 && m_folderList.m_errorCode == 0;
}

void CUsbMediaPlayer::ShuffleLocked()
{
    m_shuffleOrder = MakeShuffleOrder(static_cast<uint32_t>(m_playlist.Size()), &std::rand);
    m_shuffleIndex = 0;
}

// Switching shuffle off restores nothing: the playlist order goes on from
// the current entry.
void CUsbMediaPlayer::EnableShuffle(bool enabled)
{
    const PlayerLock lock(m_playerMutex);
    m_isShuffle = enabled;
    if (enabled) {
        ShuffleLocked();
    }
    SendShuffleModeChangedNotificationLocked();
}

void CUsbMediaPlayer::MoveToFrontOfShuffleOrderLocked(uint32_t index)
{
    MoveToFront(m_shuffleOrder, index);
}
