#include "player/SuspensionData.h"

#include "player/UsbMediaPlayer.h"

SSuspensionData::SSuspensionData(CUsbMediaPlayer& player)
    : m_track(player.GetCurrentTrack()),
      m_usbDevice(player.GetUsbDevice1()),
      m_trackTime(player.GetCurrentTrackTime()),
      m_isShuffle(player.IsShuffle()),
      m_repeatMode(player.GetRepeatMode()),
      m_playerState(player.GetPlayerState())
{
    // Through the setters, so the stored texts keep the records' form.
    m_track.SetPath(m_track.GetPath());
    m_track.SetName(m_track.GetName());
}
