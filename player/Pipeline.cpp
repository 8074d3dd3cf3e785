// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

bool CUsbMediaPlayer::SetTrack(const CFile&)
{
    return false;
}

bool CUsbMediaPlayer::ResetPlaying()
{
    return false;
}

bool CUsbMediaPlayer::PlayTrack()
{
    return false;
}

void CUsbMediaPlayer::StopPlaying()
{
}

bool CUsbMediaPlayer::SetCurrentTrackTime()
{
    return false;
}

bool CUsbMediaPlayer::QueryTrackDuration()
{
    return false;
}
