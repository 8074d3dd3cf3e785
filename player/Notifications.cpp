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

// With nobody listening the service does not play: playback stops.
void CUsbMediaPlayer::SendNotificationLocked(const Json::Value& notification)
{
    if (m_pTcpServer == nullptr) {
        LOG_AT(LogLine::kNoTcpServer, LOG_WARN, "m_pTcpServer = NULL\n");
        return;
    }
    m_clients = m_pTcpServer->GetClients();
    if (m_clients.empty()) {
        LOG_AT(LogLine::kNoClientToNotify, LOG_ERROR,
               "Usb Service Error: don't know whom to notify so its stopping playback!\n");
        StopPlayingLocked();
        return;
    }
    const std::string text = m_pTcpServer->WireText(notification);
    for (const int client : m_clients) {
        // A client that has gone does not keep the others from hearing.
        static_cast<void>(m_pTcpServer->Send(client, text));
    }
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
    track.index = GetCurrentTrackNumberLocked();
    track.count = m_playlistSize;
    track.time = GetCurrentTrackTimeLocked();
    track.duration = m_currentTrack.m_duration;
    track.isPlaying = IsPlayingLocked();
    track.filePath = Latin1ToUtf8(m_currentTrack.m_path);
    track.fileName = Latin1ToUtf8(m_currentTrack.m_name);
    track.id = m_currentTrack.m_id;
    return track;
}

void CUsbMediaPlayer::SendTrackInfoNotificationLocked()
{
    SendNotificationLocked(BuildTrackInfoNotification(GetTrackInfoValuesLocked()));
    m_trackInfoSent = true;
}

void CUsbMediaPlayer::SendTrackAlbumArtNotificationLocked(const std::string& artFilePath)
{
    LOG_AT(LogLine::kTrackAlbumArtSent, LOG_INFO, "trackAlbumArtNotification sent\n");
    SendNotificationLocked(BuildTrackAlbumArtNotification(GetCurrentTrackNumberLocked(), artFilePath));
}

void CUsbMediaPlayer::SendPlayerStateChangedNotificationLocked()
{
    LOG_AT(LogLine::kPlayerStateChangedSent, LOG_INFO, "playerStateChangedNotification sent\n");
    SendNotificationLocked(BuildPlayerStateChangedNotification(GetPlayerStateLocked()));
}

void CUsbMediaPlayer::SendRepeatModeChangedNotificationLocked()
{
    LOG_AT(LogLine::kRepeatModeChangedSent, LOG_INFO, "repeatModeChangedNotification sent\n");
    SendNotificationLocked(BuildRepeatModeChangedNotification(m_repeatMode));
}

void CUsbMediaPlayer::SendShuffleModeChangedNotificationLocked()
{
    LOG_AT(LogLine::kShuffleModeChangedSent, LOG_INFO, "shuffleModeChangedNotification sent\n");
    SendNotificationLocked(BuildShuffleModeChangedNotification(m_isShuffle));
}

// The duration sent is remembered: pause reports it again.
void CUsbMediaPlayer::SendTrackTimeNotificationLocked()
{
    LOG_AT(LogLine::kTrackTimeSent, LOG_INFO, "trackTimeNotification sent\n");
    m_trackDuration = m_currentTrack.m_duration;
    SendNotificationLocked(BuildTrackTimeNotification(GetCurrentTrackTimeLocked(), m_trackDuration));
}

void CUsbMediaPlayer::SendEndOfPlayListNotificationLocked()
{
    LOG_AT(LogLine::kEndOfPlayListSent, LOG_INFO, "endOfPlayListNotification sent\n");
    SendNotificationLocked(BuildEndOfPlayListNotification());
}

void CUsbMediaPlayer::SendUsbConnectionNotificationLocked(const std::string& deviceName, bool connected,
                                                    const std::string& errorCode)
{
    LOG_AT(LogLine::kUsbConnectionSent, LOG_INFO, "usbConnectionNotification sent\n");
    SendNotificationLocked(BuildUsbConnectionNotification(deviceName, connected, errorCode));
}
