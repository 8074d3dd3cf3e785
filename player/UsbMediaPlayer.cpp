#include "player/UsbMediaPlayer.h"

CUsbMediaPlayer& CUsbMediaPlayer::GetInstance()
{
    static CUsbMediaPlayer INSTANCE;
    return INSTANCE;
}

void CUsbMediaPlayer::CheckAlbumArt()
{
}
