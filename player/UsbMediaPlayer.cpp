// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

int32_t CUsbMediaPlayer::GetPlayerState()
{
    return 0;
}

void CUsbMediaPlayer::SetPlayerState(int32_t)
{
}

bool CUsbMediaPlayer::IsPlaying()
{
    return false;
}

uint32_t CUsbMediaPlayer::GetCurrentTrackTime()
{
    return 0;
}

void CUsbMediaPlayer::SetCurrentTrackTimeValue(uint32_t)
{
}

int32_t CUsbMediaPlayer::GetRepeatMode()
{
    return 0;
}

bool CUsbMediaPlayer::IsShuffle()
{
    return false;
}

uint32_t CUsbMediaPlayer::GetPlaylistSize()
{
    return 0;
}

uint32_t CUsbMediaPlayer::GetCurrentTrackNumber()
{
    return 0;
}

CTrackInfo CUsbMediaPlayer::GetCurrentTrack()
{
    return CTrackInfo();
}

int CUsbMediaPlayer::GetErrorCode()
{
    return 0;
}

std::string CUsbMediaPlayer::GetErrorMessage()
{
    return std::string();
}

CUsbMediaPlayer& CUsbMediaPlayer::GetInstance()
{
    static CUsbMediaPlayer INSTANCE;
    return INSTANCE;
}

CUsbMediaPlayer::CUsbMediaPlayer() = default;
CUsbMediaPlayer::~CUsbMediaPlayer() = default;

void CUsbMediaPlayer::Shutdown()
{
}
