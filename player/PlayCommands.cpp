// Starting playback of a chosen file, folder, id or the whole stick: the
// playlist is built around the choice (player/Playlist.h) and its track
// started; and switching shuffle.
#include "player/UsbMediaPlayer.h"

#include "core/Logger.h"

#include <algorithm>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

// Collects the audio files around `target` into the playlist and makes it
// the current entry; a file not found leaves the index at kNoEntryId.
void CUsbMediaPlayer::BuildPlayListLocked(const CFile& target, bool fullUsb)
{
    CFileList scanned;
    if (fullUsb) {
        LOG(LOG_INFO, "Full USB playlist\n");
        scanned.m_files = m_library.Index().Records();
    } else if (m_library.AtMaxDepth()) {
        LOG(LOG_INFO, "At max depth, the file path is: %s\n", target.m_path.c_str());
        if (!target.m_path.empty()) {
            scanned.Scan(target.m_path, "", true, false, false, 0, EWalkScope::kSticksOnly);
        }
    } else {
        LOG(LOG_INFO, "Not at max depth\n");
        scanned.Scan(target.m_path, "", false, false, false, 0, EWalkScope::kSticksOnly);
    }
    m_playlist.FillAround(scanned.m_files, target, [fullUsb](bool trueMatch) {
        if (fullUsb) {
            return;
        }
        if (trueMatch) {
            LOG(LOG_INFO, "File Found!");
        } else {
            LOG(LOG_INFO, "File Found using filename:\n");
        }
    });
}

bool CUsbMediaPlayer::PlayListLocked(const CFile& target, bool fullUsb)
{
    RefreshClientsLocked();
    ClearError();
    StopPlayingLocked();
    m_playlist.Withdraw();
    if (target.m_isFolder) {
        return PlayFolderLocked(target);
    }
    BuildPlayListLocked(target, fullUsb);
    if (m_playlist.IsShuffle()) {
        m_playlist.Reshuffle();
    }
    if (m_playlist.Index() > m_library.Index().Size()) {
        // The file is gone: play the whole stick instead.
        m_playlist.Withdraw();
        PlayAllSongsLocked(m_library.RootPath());
    } else if (const CFile* entry = m_playlist.CurrentInForce()) {
        const CFile chosen = *entry;
        if (SetTrackLocked(chosen)) {
            PlayTrackLocked();
            if (m_playlist.IsShuffle()) {
                m_playlist.PutCurrentFirstInShuffle();
            }
        }
    }
    LOG(LOG_DEBUG, "Play list: %d\n", static_cast<int>(m_playlist.Count()));
    LOG(LOG_DEBUG, "m_index  : %d\n", static_cast<int32_t>(m_playlist.Index()));
    return m_errorCode == 0;
}

// Every audio file below the folder, from the first. A folder that fails
// leaves the withdrawn playlist as it is.
bool CUsbMediaPlayer::PlayFolderLocked(const CFile& folder)
{
    CFileList scanned;
    scanned.Scan(folder.m_path + "/" + folder.m_name, "", true, false, false, 0, EWalkScope::kSticksOnly);
    if (scanned.m_errorCode != 0) {
        // The scanner has printed its failure; clients read it from the player.
        m_errorCode = scanned.m_errorCode;
        m_errorText = scanned.m_errorText;
        return false;
    }
    if (scanned.Empty()) {
        SetError("No media files found", -2);
        return false;
    }
    scanned.Sort();
    return StartPlaylistLocked(std::move(scanned.m_files), 0);
}

// Puts `records` in place as the playlist and plays the one at `index`
// (less than their count); shuffle, when on, starts from it.
bool CUsbMediaPlayer::StartPlaylistLocked(std::vector<CFile> records, uint32_t index)
{
    m_playlist.Replace(std::move(records), index);
    if (m_playlist.IsShuffle()) {
        m_playlist.Reshuffle();
    }
    const CFile first = *m_playlist.Current();
    SetTrackLocked(first);
    PlayTrackLocked();
    if (m_playlist.IsShuffle()) {
        m_playlist.PutCurrentFirstInShuffle();
    }
    return m_errorCode == 0;
}

bool CUsbMediaPlayer::PlayTracksLocked(std::vector<CFile> tracks, std::optional<uint32_t> startTrackId)
{
    RefreshClientsLocked();
    ClearError();
    if (tracks.empty()) {
        SetError("Playlist is empty", -3);
        return false;
    }
    uint32_t start = 0;
    if (startTrackId) {
        const auto found = std::find_if(tracks.begin(), tracks.end(),
                                        [&](const CFile& track) { return track.m_id == *startTrackId; });
        if (found == tracks.end()) {
            SetError("Track not in this list", -12);
            return false;
        }
        start = static_cast<uint32_t>(found - tracks.begin());
    }
    StopPlayingLocked();
    m_playlist.Withdraw();
    return StartPlaylistLocked(std::move(tracks), start);
}

// Asking for the file that is already current changes nothing.
bool CUsbMediaPlayer::PlayFileByIdLocked(uint32_t id, bool fullUsb)
{
    const CFile* current = m_playlist.CurrentInForce();
    if (current != nullptr && current->m_id != kNoEntryId && current->m_id == id) {
        return true;
    }
    return PlayListLocked(m_library.Index().FindById(id), fullUsb);
}

// Plays from the first record of the storage index (usually the first
// top-level folder, played with everything below it).
bool CUsbMediaPlayer::PlayAllSongsLocked(const std::string&)
{
    ClearError();
    const CStorageIndex& index = m_library.Index();
    if (index.Empty()) {
        SetError("No Songs on USB!", -6);
    } else {
        const CFile first = index.At(0);
        PlayListLocked(first, true);
    }
    return m_errorCode == 0 && m_library.Index().m_errorCode == 0;
}

// Switching shuffle off restores nothing: the playlist order goes on from
// the current entry.
void CUsbMediaPlayer::EnableShuffle(bool enabled)
{
    const PlayerLock lock(m_playerMutex);
    m_playlist.SetShuffle(enabled);
    static_cast<void>(SendShuffleModeChangedNotificationLocked());  // the last step
}
