// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

std::vector<CFile> CUsbMediaPlayer::_getFileListByGroupID(uint32_t, bool)
{
    return {};
}

std::vector<CFile> CUsbMediaPlayer::GetFileListByPath(const std::string&, bool)
{
    return {};
}

std::vector<CFile> CUsbMediaPlayer::SearchFiles(const std::string&, const std::string&)
{
    return {};
}

bool CUsbMediaPlayer::IndexStorage(const std::string&)
{
    return false;
}

bool CUsbMediaPlayer::IndexDevice(const std::string&)
{
    return false;
}

uint32_t CUsbMediaPlayer::GetStorageCrc32()
{
    return 0;
}

std::string CUsbMediaPlayer::GetCurrentRootPath()
{
    return std::string();
}
