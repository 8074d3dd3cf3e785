// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

bool CUsbMediaPlayer::SeekForward(bool)
{
    return false;
}

bool CUsbMediaPlayer::SeekBackward(bool)
{
    return false;
}

bool CUsbMediaPlayer::SeekToTime(int64_t)
{
    return false;
}
