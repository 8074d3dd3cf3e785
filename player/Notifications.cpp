// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

void CUsbMediaPlayer::SetTcpServer(Json::Rpc::TcpServer*)
{
}

void CUsbMediaPlayer::RefreshClients()
{
}

void CUsbMediaPlayer::SendNotification(const Json::Value&)
{
}

void CUsbMediaPlayer::SendTrackInfoNotification()
{
}

void CUsbMediaPlayer::SendTrackAlbumArtNotification(const std::string&)
{
}

void CUsbMediaPlayer::SendPlayerStateChangedNotification()
{
}

void CUsbMediaPlayer::SendRepeatModeChangedNotification()
{
}

void CUsbMediaPlayer::SendShuffleModeChangedNotification()
{
}

void CUsbMediaPlayer::SendTrackTimeNotification()
{
}

void CUsbMediaPlayer::SendEndOfPlayListNotification()
{
}

void CUsbMediaPlayer::SendUsbConnectionNotification(const std::string&, bool, const std::string&)
{
}
