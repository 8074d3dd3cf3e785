// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

void CUsbMediaPlayer::BuildPlayList(const CFile&, bool)
{
}

bool CUsbMediaPlayer::PlayList(const CFile&, bool)
{
    return false;
}

bool CUsbMediaPlayer::PlayFileById(uint32_t, bool)
{
    return false;
}

bool CUsbMediaPlayer::PlayAllSongs(const std::string&)
{
    return false;
}

void CUsbMediaPlayer::Shuffle()
{
}

void CUsbMediaPlayer::EnableShuffle(bool)
{
}
