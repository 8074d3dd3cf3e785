// Placeholder bodies, replaced as the subsystem is built.
#include "player/UsbMediaPlayer.h"

gboolean CUsbMediaPlayer::OnBusMessage(GstBus*, GstMessage*, gpointer)
{
    return TRUE;
}
