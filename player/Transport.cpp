// Transport (play, pause, stop, restart) and moving through the playlist
// by the repeat and shuffle rules.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Logger.h"
#include "player/Navigation.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;

std::string NoFileSelected(const CTrackInfo& track)
{
    return "No file selected to play - " + track.m_path + "/" + track.m_name;
}
}  // namespace

// Playing already: the track starts over (which also ends a fast forward
// or rewind). Paused or loaded: it goes on.
bool CUsbMediaPlayer::Play()
{
    const PlayerLock lock(m_playerMutex);
    return PlayLocked();
}

bool CUsbMediaPlayer::PlayLocked()
{
    RefreshClientsLocked();
    ClearError();
    if (IsPlayingLocked()) {
        PlayTrackLocked();
    } else if (m_pipeline) {
        gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
        SetPlayerStateLocked(STATE_PLAYING);
        WakeProgressThread();
    } else {
        SetError("No Song to play!", -1);
    }
    return m_errorCode == 0;
}

// Clients get the position where playback paused.
bool CUsbMediaPlayer::Pause()
{
    const PlayerLock lock(m_playerMutex);
    return PauseLocked();
}

bool CUsbMediaPlayer::PauseLocked()
{
    ClearError();
    if (!IsPlayingLocked()) {
        SetError("No Song to pause!", -1);
        return false;
    }
    SetCurrentTrackTimeLocked();
    m_currentTrack.m_duration = m_trackDuration;
    SendTrackTimeNotificationLocked();
    if (m_pipeline) {
        gst_element_set_state(m_pipeline.get(), GST_STATE_PAUSED);
    }
    SetPlayerStateLocked(STATE_PAUSED);
    return m_errorCode == 0;
}

bool CUsbMediaPlayer::Stop()
{
    const PlayerLock lock(m_playerMutex);
    return StopLocked();
}

bool CUsbMediaPlayer::StopLocked()
{
    ClearError();
    StopPlayingLocked();
    return true;
}

// While not playing the track is reloaded and left unstarted in state 3;
// the inner pause finds nothing playing and reports so, and the next play
// starts the track from its beginning.
bool CUsbMediaPlayer::RestartTrack()
{
    const PlayerLock lock(m_playerMutex);
    return RestartTrackLocked();
}

bool CUsbMediaPlayer::RestartTrackLocked()
{
    ClearError();
    if (IsPlayingLocked()) {
        if (ResetPlayingLocked()) {
            if (m_pipeline) {
                gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
            }
            SetPlayerStateLocked(STATE_PLAYING);
            WakeProgressThread();
        }
    } else if (ResetPlayingLocked()) {
        PauseLocked();
        SetPlayerStateLocked(STATE_PAUSED);
    }
    return m_errorCode == 0;
}

bool CUsbMediaPlayer::PreviousTrack()
{
    const PlayerLock lock(m_playerMutex);
    return PreviousTrackLocked();
}

bool CUsbMediaPlayer::PreviousTrackLocked()
{
    ClearError();
    const uint32_t target = GetPreviousIndexLocked(false);
    if (target >= m_playlistSize) {
        SetError(NoFileSelected(m_currentTrack), -4);
    } else {
        goToTrackIndexLocked(target);
    }
    return m_errorCode == 0;
}

// Past the last entry the playlist ends and the call fails.
bool CUsbMediaPlayer::_nextUSB()
{
    const PlayerLock lock(m_playerMutex);
    return _nextUSBLocked();
}

bool CUsbMediaPlayer::_nextUSBLocked()
{
    m_trackInfoSent = false;
    ClearError();
    const uint32_t target = GetNextIndexLocked(false);
    if (target >= m_playlistSize) {
        LOG(LOG_INFO, "_nextUSB - Clearing the playlist\n");
        EndPlaylistLocked();
        SetError(NoFileSelected(m_currentTrack), -4);
    } else {
        goToTrackIndexLocked(target);
    }
    return m_errorCode == 0;
}

// A playing player plays the new entry; a paused or stopped one ends up
// paused on it.
bool CUsbMediaPlayer::goToTrackIndexLocked(uint32_t index)
{
    m_playlistSize = static_cast<uint32_t>(m_playlist.Size());
    const uint32_t target = index < m_playlistSize ? index : 0;
    LOG(LOG_INFO, "goToTrackIndex: %d\n", static_cast<int>(target));
    const int32_t stateBefore = GetPlayerStateLocked();
    if (m_playlistSize == 0) {
        SetError("Playlist is empty", -3);
        return false;
    }
    StopPlayingLocked();
    m_index = target;
    const CFile entry = m_playlist.m_files[target];
    if (!SetTrackLocked(entry)) {
        return false;
    }
    PlayTrackLocked();
    if (!IsPlayingState(stateBefore)) {
        PauseLocked();
    }
    return true;
}

// The track has played to its end: go on by the repeat and shuffle rules.
void CUsbMediaPlayer::OnEndOfStreamLocked()
{
    m_currentTrack.ClearTrack();
    ReleaseAlbumArtLocked();
    const uint32_t target = GetNextIndexLocked(true);
    if (target >= m_playlistSize && m_repeatMode == REPEAT_NONE) {
        EndPlaylistLocked();
    } else {
        goToTrackIndexLocked(target);
    }
}

void CUsbMediaPlayer::EndPlaylistLocked()
{
    StopPlayingLocked();
    m_playlist.Clear();
    m_playlistSize = 0;
    m_currentTrack.SetName("");
    m_currentTrack.SetPath("");
    m_currentTrack.m_id = kNoEntryId;
    SendEndOfPlayListNotificationLocked();
}

// Any value is taken as it is; clients hear of it even when unchanged.
void CUsbMediaPlayer::SetRepeatMode(int32_t mode)
{
    const PlayerLock lock(m_playerMutex);
    m_repeatMode = mode;
    SendRepeatModeChangedNotificationLocked();
}

uint32_t CUsbMediaPlayer::GetNextIndexLocked(bool automatic)
{
    const SPlaylistPosition at{m_index, m_playlistSize, m_repeatMode, m_isShuffle, m_shuffleIndex};
    const SNavigationStep step = NextPosition(at, m_shuffleOrder, automatic);
    m_shuffleIndex = step.shuffleIndex;
    return step.index;
}

uint32_t CUsbMediaPlayer::GetPreviousIndexLocked(bool automatic)
{
    const SPlaylistPosition at{m_index, m_playlistSize, m_repeatMode, m_isShuffle, m_shuffleIndex};
    const SNavigationStep step = PreviousPosition(at, m_shuffleOrder, automatic);
    m_shuffleIndex = step.shuffleIndex;
    return step.index;
}

bool CUsbMediaPlayer::ValidateCurrentTrack()
{
    const PlayerLock lock(m_playerMutex);
    return ValidateCurrentTrackLocked();
}

bool CUsbMediaPlayer::ValidateCurrentTrackLocked()
{
    RefreshClientsLocked();
    ClearError();
    if (IsPlayingLocked()) {
        SetCurrentTrackTimeLocked();
        QueryTrackDurationLocked();
    }
    return m_errorCode == 0;
}
