// The pipeline's bus watch, run by the GLib main loop: end of stream,
// errors and tags.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Logger.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
}  // namespace

gboolean CUsbMediaPlayer::OnBusMessage(GstBus* bus, GstMessage* message, gpointer player)
{
    CUsbMediaPlayer& self = *static_cast<CUsbMediaPlayer*>(player);
    const CLockGuard<CMutex> lock(self.m_playerMutex);
    if (!self.m_pipeline) {
        return TRUE;
    }
    // A message already on its way when its pipeline was replaced is stale.
    const GstBusPtr currentBus(gst_pipeline_get_bus(GST_PIPELINE(self.m_pipeline.get())));
    if (currentBus.get() != bus) {
        return TRUE;
    }
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
        LOG(LOG_INFO, "end-of-stream\n");
        self.OnEndOfStreamLocked();
        break;
    case GST_MESSAGE_ERROR:
        self.HandleBusErrorLocked(message);
        break;
    case GST_MESSAGE_TAG:
        self.HandleBusTagLocked(message);
        break;
    default:
        break;
    }
    return TRUE;
}
