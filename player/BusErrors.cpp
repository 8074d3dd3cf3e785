// Errors posted on the pipeline's bus: an unreadable file reports its stick
// as failed, a missing file restarts the stick once and then reports it, and
// anything else (a file that does not decode, say) skips to the next track.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "core/UsbSticks.h"

#include <cstdint>
#include <memory>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";

// Codes of the resource error domain; only the code is looked at, whatever
// the domain of the error.
constexpr gint kNotFoundCode = 3;  // GST_RESOURCE_ERROR_NOT_FOUND
constexpr gint kReadCode = 9;      // GST_RESOURCE_ERROR_READ

// The device name of the stick that holds `directory`.
std::string StickDevice(const std::string& directory)
{
    return StickOfTrackFolder(directory).deviceName;
}

std::string StickRoot(const std::string& directory)
{
    return SystemPath(StickOfTrackFolder(directory).mountPoint);
}
}  // namespace

void CUsbMediaPlayer::HandleBusErrorLocked(GstMessage* message)
{
    GError* rawError = nullptr;
    gchar* rawDebug = nullptr;
    gst_message_parse_error(message, &rawError, &rawDebug);
    const GErrorPtr error(rawError);
    const GCharPtr debug(rawDebug);
    if (!error) {
        return;
    }
    // The value is the address of the message text: the line only marks the event.
    LOG(LOG_INFO, "Error: %d\n", static_cast<int>(reinterpret_cast<uintptr_t>(error->message)));

    const std::string directory = m_currentTrack.m_path;
    if (error->code == kReadCode) {
        LOG(LOG_INFO, "Unreadable resource\n");
        StopPlayingLocked();
        // Stopped already: a send that finds nobody changes nothing.
        static_cast<void>(SendTrackInfoNotificationLocked());
        OnUsbConnectionEventLocked(StickDevice(directory), false, "badFile");
        return;
    }
    if (error->code != kNotFoundCode) {
        _nextUSBLocked();
        return;
    }
    // First miss: the stick's content may have changed, play it again from
    // its root. Second miss: report the stick as failed.
    if (m_notFoundCount == 0) {
        PlayAllSongsLocked(StickRoot(directory));
        ++m_notFoundCount;
        return;
    }
    OnUsbConnectionEventLocked(StickDevice(directory), false, "fileNotFound");
    m_notFoundCount = 0;
}
