// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

bool CUsbMediaPlayer::Play()
{
    return false;
}

bool CUsbMediaPlayer::Pause()
{
    return false;
}

bool CUsbMediaPlayer::Stop()
{
    return false;
}

bool CUsbMediaPlayer::RestartTrack()
{
    return false;
}

bool CUsbMediaPlayer::PreviousTrack()
{
    return false;
}

bool CUsbMediaPlayer::_nextUSB()
{
    return false;
}

bool CUsbMediaPlayer::goToTrackIndex(uint32_t)
{
    return false;
}

void CUsbMediaPlayer::OnEndOfStream()
{
}

void CUsbMediaPlayer::SetRepeatMode(int32_t)
{
}

uint32_t CUsbMediaPlayer::GetNextIndex(bool)
{
    return 0;
}

uint32_t CUsbMediaPlayer::GetPreviousIndex(bool)
{
    return 0;
}

bool CUsbMediaPlayer::ValidateCurrentTrack()
{
    return false;
}
