// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

void CUsbMediaPlayer::HandleBusTag(GstMessage*)
{
}
