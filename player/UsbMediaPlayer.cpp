// The player singleton: construction, shutdown, the state clients see and
// the plain accessors.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Environment.h"
#include "core/PosixHandles.h"
#include "player/DecoderRanks.h"
#include "core/UsbSticks.h"

namespace {
using PlayerLock = CLockGuard<CMutex>;

bool OpensAsDirectory(const std::string& path)
{
    return DirPtr(opendir(path.c_str())) != nullptr;
}
}  // namespace

CUsbMediaPlayer& CUsbMediaPlayer::GetInstance()
{
    static CUsbMediaPlayer INSTANCE;
    return INSTANCE;
}

CUsbMediaPlayer::CUsbMediaPlayer() : m_artFiles(SystemPath("/home/root/art_dump"))
{
    gst_init(nullptr, nullptr);
    PreferCheaperDecoders();
    // Nothing is loaded yet: no texts, no path, no duration (a default track
    // record stands for the mount root instead).
    m_currentTrack.ClearTrack();
    m_usbDevice1.m_deviceName = kFirstStick.deviceName;
    m_usbDevice1.m_isConnected = OpensAsDirectory(SystemPath(kFirstStick.mountPoint));
    m_usbDevice1.m_errorCode = "";
    // Every member and mutex exists by now, so the threads may use them at once.
    m_progressThread = std::thread(&CUsbMediaPlayer::TrackProgressUpdate, this);
    m_seekThread = std::thread(&CUsbMediaPlayer::SeekFastForwardRewind, this);
}

CUsbMediaPlayer::~CUsbMediaPlayer()
{
    Shutdown();
}

void CUsbMediaPlayer::Shutdown()
{
    m_stopThreads = true;
    WakeProgressThread();
    WakeSeekThread();
    if (m_progressThread.joinable()) {
        m_progressThread.join();
    }
    if (m_seekThread.joinable()) {
        m_seekThread.join();
    }
    WaitForAlbumArtWorkers();
    StopPlaying();
}

// The cached state; only an unknown state (-1) asks the pipeline, waiting
// at most one second for it to settle.
int32_t CUsbMediaPlayer::GetPlayerState()
{
    const PlayerLock lock(m_playerMutex);
    return GetPlayerStateLocked();
}

int32_t CUsbMediaPlayer::GetPlayerStateLocked()
{
    const CLockGuard<CMutex> stateLock(m_stateMutex);
    if (m_playerState != STATE_UNKNOWN) {
        return m_playerState;
    }
    if (!m_pipeline) {
        m_playerState = STATE_STOPPED;
        return m_playerState;
    }
    GstState current = GST_STATE_VOID_PENDING;
    GstState pending = GST_STATE_VOID_PENDING;
    gst_element_get_state(m_pipeline.get(), &current, &pending, GST_SECOND);
    if (current == GST_STATE_PAUSED || current == GST_STATE_PLAYING) {
        m_playerState = static_cast<int32_t>(current);
    }
    return m_playerState;
}

// Clients hear of a state only when what they can see changes.
void CUsbMediaPlayer::SetPlayerStateLocked(int32_t state)
{
    const int32_t before = GetPlayerStateLocked();
    {
        const CLockGuard<CMutex> stateLock(m_stateMutex);
        m_playerState = state;
    }
    if (GetPlayerStateLocked() != before) {
        SendPlayerStateChangedNotificationLocked();
    }
}

int32_t CUsbMediaPlayer::CachedPlayerState()
{
    const CLockGuard<CMutex> stateLock(m_stateMutex);
    return m_playerState;
}

bool CUsbMediaPlayer::IsPlayingLocked()
{
    return IsPlayingState(GetPlayerStateLocked());
}

uint32_t CUsbMediaPlayer::GetCurrentTrackTime()
{
    const PlayerLock lock(m_playerMutex);
    return GetCurrentTrackTimeLocked();
}

uint32_t CUsbMediaPlayer::GetCurrentTrackTimeLocked()
{
    return m_currentTime;
}

void CUsbMediaPlayer::SetCurrentTrackTimeValueLocked(uint32_t seconds)
{
    m_currentTime = seconds;
}

int32_t CUsbMediaPlayer::GetRepeatMode()
{
    const PlayerLock lock(m_playerMutex);
    return m_repeatMode;
}

bool CUsbMediaPlayer::IsShuffle()
{
    const PlayerLock lock(m_playerMutex);
    return m_isShuffle;
}

uint32_t CUsbMediaPlayer::GetPlaylistSizeLocked()
{
    return m_playlistSize;
}

uint32_t CUsbMediaPlayer::GetCurrentTrackNumberLocked()
{
    return m_playlistSize == 0 ? 0 : m_index + 1;
}

CTrackInfo CUsbMediaPlayer::GetCurrentTrack()
{
    const PlayerLock lock(m_playerMutex);
    return m_currentTrack;
}

int CUsbMediaPlayer::GetErrorCode()
{
    const PlayerLock lock(m_playerMutex);
    return m_errorCode;
}

std::string CUsbMediaPlayer::GetErrorMessage()
{
    const PlayerLock lock(m_playerMutex);
    return GetErrorText();
}
