// Pushing notifications to every connected client.
#include "player/UsbMediaPlayer.h"

#include "control/NotificationBuilders.h"
#include "control/rpc/JsonText.h"
#include "control/rpc/TcpServer.h"
#include "core/LogLines.h"
#include "core/Logger.h"
#include "core/TextConversion.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CRecursiveMutex>;
}  // namespace

void CUsbMediaPlayer::SetTcpServer(Json::Rpc::TcpServer* server)
{
    const PlayerLock lock(m_playerMutex);
    m_pTcpServer = server;
}

void CUsbMediaPlayer::RefreshClients()
{
    const PlayerLock lock(m_playerMutex);
    m_clients = m_pTcpServer != nullptr ? m_pTcpServer->GetClients() : std::list<int>();
}

// With nobody listening the service does not play: playback stops.
void CUsbMediaPlayer::SendNotification(const Json::Value& notification)
{
    const PlayerLock lock(m_playerMutex);
    if (m_pTcpServer == nullptr) {
        LOG_AT(LogLine::kNoTcpServer, LOG_WARN, "m_pTcpServer = NULL\n");
        return;
    }
    m_clients = m_pTcpServer->GetClients();
    if (m_clients.empty()) {
        LOG_AT(LogLine::kNoClientToNotify, LOG_ERROR, "Usb Service Error: don't know whom to notify so its stopping playback!\n");
        StopPlaying();
        return;
    }
    const std::string text = Json::Rpc::ToWireText(notification);
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
    STrackInfoValues track;
    track.title = m_currentTrack.m_title;
    track.artist = m_currentTrack.m_artist;
    track.album = m_currentTrack.m_album;
    track.index = GetCurrentTrackNumber();
    track.count = m_playlistSize;
    track.time = GetCurrentTrackTime();
    track.duration = m_currentTrack.m_duration;
    track.isPlaying = IsPlaying();
    track.filePath = Latin1ToUtf8(m_currentTrack.m_path);
    track.fileName = Latin1ToUtf8(m_currentTrack.m_name);
    track.id = m_currentTrack.m_id;
    return track;
}

void CUsbMediaPlayer::SendTrackInfoNotification()
{
    const PlayerLock lock(m_playerMutex);
    SendNotification(BuildTrackInfoNotification(GetTrackInfoValues()));
    m_trackInfoSent = true;
}

void CUsbMediaPlayer::SendTrackAlbumArtNotification(const std::string& artFilePath)
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kTrackAlbumArtSent, LOG_INFO, "trackAlbumArtNotification sent\n");
    SendNotification(BuildTrackAlbumArtNotification(GetCurrentTrackNumber(), artFilePath));
}

void CUsbMediaPlayer::SendPlayerStateChangedNotification()
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kPlayerStateChangedSent, LOG_INFO, "playerStateChangedNotification sent\n");
    SendNotification(BuildPlayerStateChangedNotification(GetPlayerState()));
}

void CUsbMediaPlayer::SendRepeatModeChangedNotification()
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kRepeatModeChangedSent, LOG_INFO, "repeatModeChangedNotification sent\n");
    SendNotification(BuildRepeatModeChangedNotification(m_repeatMode));
}

void CUsbMediaPlayer::SendShuffleModeChangedNotification()
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kShuffleModeChangedSent, LOG_INFO, "shuffleModeChangedNotification sent\n");
    SendNotification(BuildShuffleModeChangedNotification(m_isShuffle));
}

// The duration sent is remembered: pause reports it again.
void CUsbMediaPlayer::SendTrackTimeNotification()
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kTrackTimeSent, LOG_INFO, "trackTimeNotification sent\n");
    m_trackDuration = m_currentTrack.m_duration;
    SendNotification(BuildTrackTimeNotification(GetCurrentTrackTime(), m_trackDuration));
}

void CUsbMediaPlayer::SendEndOfPlayListNotification()
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kEndOfPlayListSent, LOG_INFO, "endOfPlayListNotification sent\n");
    SendNotification(BuildEndOfPlayListNotification());
}

void CUsbMediaPlayer::SendUsbConnectionNotification(const std::string& deviceName, bool connected,
                                                    const std::string& errorCode)
{
    const PlayerLock lock(m_playerMutex);
    LOG_AT(LogLine::kUsbConnectionSent, LOG_INFO, "usbConnectionNotification sent\n");
    SendNotification(BuildUsbConnectionNotification(deviceName, connected, errorCode));
}
