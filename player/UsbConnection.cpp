// USB stick events from the platform and stick failures found while
// playing: only the first stick's record is kept and announced; a removal
// stops playback from that stick and empties the media lists.
#include "player/UsbMediaPlayer.h"

#include "core/Logger.h"
#include "core/UsbSticks.h"

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

void CUsbMediaPlayer::OnUsbConnectionEvent(const std::string& device, bool connected,
                                           const std::string& errorCode)
{
    const PlayerLock lock(m_playerMutex);
    OnUsbConnectionEventLocked(device, connected, errorCode);
}

void CUsbMediaPlayer::OnUsbConnectionEventLocked(const std::string& device, bool connected,
                                           const std::string& errorCode)
{
    LOG(LOG_DEBUG, "UsbConnectionNotification received. %s isConnected = %d errorcode: %s\n",
        device.c_str(), connected, errorCode.c_str());

    bool changed = false;
    if (device == kFirstStick.deviceName) {
        changed = connected != m_usbDevice1.m_isConnected;
        m_usbDevice1.m_isConnected = connected;
        m_usbDevice1.m_errorCode = errorCode;
    }
    if (!connected) {
        HandleUsbRemovalLocked(device);
    }
    if (changed) {
        static_cast<void>(SendUsbConnectionNotificationLocked(device, connected, errorCode));  // the last step
    }
}

// A stick went away (or failed): stop when it holds the current track, and
// forget the media lists in any case.
void CUsbMediaPlayer::HandleUsbRemovalLocked(const std::string& device)
{
    if (TrackIsOnDevice(m_currentTrack.m_path, device)) {
        StopPlayingLocked();
        m_currentTrack.SetName("");
        m_currentTrack.SetPath("");
        m_currentTrack.m_id = kNoEntryId;
        m_playlist.Disown();
    }
    m_library.ForgetAfterRemoval();
}

bool CUsbMediaPlayer::IsUsbConnected(const std::string& deviceName)
{
    const PlayerLock lock(m_playerMutex);
    RefreshClientsLocked();
    ClearError();
    return deviceName == kFirstStick.deviceName && m_usbDevice1.m_isConnected;
}

std::string CUsbMediaPlayer::GetUsbErrorCode()
{
    const PlayerLock lock(m_playerMutex);
    return m_usbDevice1.m_errorCode;
}

CUsbDeviceStatus CUsbMediaPlayer::GetUsbDevice1()
{
    const PlayerLock lock(m_playerMutex);
    return m_usbDevice1;
}
