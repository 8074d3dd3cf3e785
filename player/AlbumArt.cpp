// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

void CUsbMediaPlayer::RequestAlbumArt()
{
}

void CUsbMediaPlayer::CheckAlbumArt()
{
}

std::string CUsbMediaPlayer::GetBufferedAlbumArt()
{
    return std::string();
}
