// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

void CUsbMediaPlayer::OnUsbConnectionEvent(const std::string&, bool, const std::string&)
{
}

bool CUsbMediaPlayer::IsUsbConnected(const std::string&)
{
    return false;
}

std::string CUsbMediaPlayer::GetUsbErrorCode()
{
    return std::string();
}
