// Pushing notifications to every connected client.
#include "player/UsbMediaPlayer.h"

#include "core/LogLines.h"
#include "core/Logger.h"
#include "core/TextConversion.h"
#include "player/NotificationBuilders.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

void CUsbMediaPlayer::SetTcpServer(INotificationSink* server)
{
    const PlayerLock lock(m_playerMutex);
    m_pTcpServer = server;
}

void CUsbMediaPlayer::RefreshClientsLocked()
{
    m_clients = m_pTcpServer != nullptr ? m_pTcpServer->GetClients() : std::list<int>();
}

// With nobody listening the service does not play: playback stops, and the
// caller hears so (false) before it acts on the track it had.
bool CUsbMediaPlayer::NotifyLocked(const Json::Value& notification)
{
    if (m_pTcpServer == nullptr) {
        LOG_AT(LogLine::kNoTcpServer, LOG_WARN, "m_pTcpServer = NULL\n");
        return true;
    }
    m_clients = m_pTcpServer->GetClients();
    if (m_clients.empty()) {
        LOG_AT(LogLine::kNoClientToNotify, LOG_ERROR,
               "Usb Service Error: don't know whom to notify so its stopping playback!\n");
        StopPlayingLocked();
        return false;
    }
    const std::string text = m_pTcpServer->WireText(notification);
    for (const int client : m_clients) {
        // A client that has gone does not keep the others from hearing.
        static_cast<void>(m_pTcpServer->Send(client, text));
    }
    return true;
}

// The one place the current track is turned into what clients read, for the
// notification and the getCurrentTrackInfoUSB reply alike. Tag texts are the
// UTF-8 GStreamer handed over and go out as they are; name and path are the
// stick's ISO8859-1 and are converted.
STrackInfoValues CUsbMediaPlayer::GetTrackInfoValues()
{
    const PlayerLock lock(m_playerMutex);
    return GetTrackInfoValuesLocked();
}

STrackInfoValues CUsbMediaPlayer::GetTrackInfoValuesLocked()
{
    STrackInfoValues track;
    track.title = m_currentTrack.m_title;
    track.artist = m_currentTrack.m_artist;
    track.album = m_currentTrack.m_album;
    track.index = m_playlist.TrackNumber();
    track.count = m_playlist.Count();
    track.time = m_currentTime;
    track.duration = m_currentTrack.m_duration;
    track.isPlaying = IsPlayingLocked();
    track.filePath = Latin1ToUtf8(m_currentTrack.m_path);
    track.fileName = Latin1ToUtf8(m_currentTrack.m_name);
    track.id = m_currentTrack.m_id;
    return track;
}

bool CUsbMediaPlayer::SendTrackInfoNotificationLocked()
{
    return NotifyLocked(BuildTrackInfoNotification(GetTrackInfoValuesLocked()));
}

bool CUsbMediaPlayer::SendTrackAlbumArtNotificationLocked(const std::string& artFilePath)
{
    LOG_AT(LogLine::kTrackAlbumArtSent, LOG_INFO, "trackAlbumArtNotification sent\n");
    return NotifyLocked(BuildTrackAlbumArtNotification(m_playlist.TrackNumber(), artFilePath));
}

bool CUsbMediaPlayer::SendPlayerStateChangedNotificationLocked()
{
    LOG_AT(LogLine::kPlayerStateChangedSent, LOG_INFO, "playerStateChangedNotification sent\n");
    return NotifyLocked(BuildPlayerStateChangedNotification(GetPlayerStateLocked()));
}

bool CUsbMediaPlayer::SendRepeatModeChangedNotificationLocked()
{
    LOG_AT(LogLine::kRepeatModeChangedSent, LOG_INFO, "repeatModeChangedNotification sent\n");
    return NotifyLocked(BuildRepeatModeChangedNotification(m_playlist.RepeatMode()));
}

bool CUsbMediaPlayer::SendShuffleModeChangedNotificationLocked()
{
    LOG_AT(LogLine::kShuffleModeChangedSent, LOG_INFO, "shuffleModeChangedNotification sent\n");
    return NotifyLocked(BuildShuffleModeChangedNotification(m_playlist.IsShuffle()));
}

// The duration sent is remembered: pause reports it again.
bool CUsbMediaPlayer::SendTrackTimeNotificationLocked()
{
    LOG_AT(LogLine::kTrackTimeSent, LOG_INFO, "trackTimeNotification sent\n");
    m_trackDuration = m_currentTrack.m_duration;
    return NotifyLocked(BuildTrackTimeNotification(m_currentTime, m_trackDuration));
}

bool CUsbMediaPlayer::SendEndOfPlayListNotificationLocked()
{
    LOG_AT(LogLine::kEndOfPlayListSent, LOG_INFO, "endOfPlayListNotification sent\n");
    return NotifyLocked(BuildEndOfPlayListNotification());
}

bool CUsbMediaPlayer::SendUsbConnectionNotificationLocked(const std::string& deviceName, bool connected,
                                                    const std::string& errorCode)
{
    LOG_AT(LogLine::kUsbConnectionSent, LOG_INFO, "usbConnectionNotification sent\n");
    return NotifyLocked(BuildUsbConnectionNotification(deviceName, connected, errorCode));
}
