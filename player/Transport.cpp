// Transport (play, pause, stop, restart) and moving through the playlist;
// the playlist (player/Playlist.h) says where next and previous lead.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Logger.h"

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
bool CUsbMediaPlayer::PlayLocked()
{
    RefreshClientsLocked();
    ClearError();
    if (IsPlayingLocked()) {
        PlayTrackLocked();
    } else if (m_pipeline) {
        gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
        static_cast<void>(SetPlayerStateLocked(STATE_PLAYING));  // the last step
    } else {
        SetError("No Song to play!", -1);
    }
    return m_errorCode == 0;
}

// Clients get the position where playback paused. With nobody to tell, the
// send has stopped playback and there is nothing left to pause.
bool CUsbMediaPlayer::PauseLocked()
{
    ClearError();
    if (!IsPlayingLocked()) {
        SetError("No Song to pause!", -1);
        return false;
    }
    SetCurrentTrackTimeLocked();
    m_currentTrack.m_duration = m_trackDuration;
    if (!SendTrackTimeNotificationLocked()) {
        return m_errorCode == 0;
    }
    if (m_pipeline) {
        gst_element_set_state(m_pipeline.get(), GST_STATE_PAUSED);
    }
    static_cast<void>(SetPlayerStateLocked(STATE_PAUSED));  // the last step
    return m_errorCode == 0;
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
bool CUsbMediaPlayer::RestartTrackLocked()
{
    ClearError();
    if (IsPlayingLocked()) {
        if (ResetPlayingLocked()) {
            if (m_pipeline) {
                gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
            }
            static_cast<void>(SetPlayerStateLocked(STATE_PLAYING));  // the last step
        }
    } else if (ResetPlayingLocked()) {
        PauseLocked();
        static_cast<void>(SetPlayerStateLocked(STATE_PAUSED));  // the last step
    }
    return m_errorCode == 0;
}

bool CUsbMediaPlayer::PreviousTrackLocked()
{
    ClearError();
    const uint32_t target = m_playlist.PreviousIndex(false);
    if (target >= m_playlist.Count()) {
        SetError(NoFileSelected(m_currentTrack), -4);
    } else {
        goToTrackIndexLocked(target);
    }
    return m_errorCode == 0;
}

// Past the last entry the playlist ends and the call fails.
bool CUsbMediaPlayer::_nextUSBLocked()
{
    ClearError();
    const uint32_t target = m_playlist.NextIndex(false);
    if (target >= m_playlist.Count()) {
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
    const uint32_t count = m_playlist.Recount();
    const uint32_t target = index < count ? index : 0;
    LOG(LOG_INFO, "goToTrackIndex: %d\n", static_cast<int>(target));
    const int32_t stateBefore = GetPlayerStateLocked();
    if (count == 0) {
        SetError("Playlist is empty", -3);
        return false;
    }
    StopPlayingLocked();
    const CFile* entry = m_playlist.MoveTo(target);
    if (entry == nullptr || !SetTrackLocked(*entry)) {
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
    m_albumArt.Release();
    const uint32_t target = m_playlist.NextIndex(true);
    if (target >= m_playlist.Count() && m_playlist.RepeatMode() == REPEAT_NONE) {
        EndPlaylistLocked();
    } else {
        goToTrackIndexLocked(target);
    }
}

void CUsbMediaPlayer::EndPlaylistLocked()
{
    StopPlayingLocked();
    m_playlist.Clear();
    m_currentTrack.SetName("");
    m_currentTrack.SetPath("");
    m_currentTrack.m_id = kNoEntryId;
    static_cast<void>(SendEndOfPlayListNotificationLocked());  // the last step
}

// Any value is taken as it is; clients hear of it even when unchanged.
void CUsbMediaPlayer::SetRepeatMode(int32_t mode)
{
    const PlayerLock lock(m_playerMutex);
    m_playlist.SetRepeatMode(mode);
    static_cast<void>(SendRepeatModeChangedNotificationLocked());  // the last step
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
