// The player singleton: construction, shutdown, the state clients see and
// the plain accessors.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Environment.h"
#include "core/PosixHandles.h"
#include "player/DecoderRanks.h"
#include "core/UsbSticks.h"

#include <chrono>

namespace {
using PlayerLock = CLockGuard<CMutex>;

constexpr std::chrono::microseconds kProgressPeriod{1000000};
constexpr std::chrono::microseconds kSeekPeriod{500000};

bool IsSeekingState(int32_t state)
{
    return state == STATE_FAST_FORWARD || state == STATE_REWIND;
}

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

CUsbMediaPlayer::CUsbMediaPlayer()
    : m_albumArt(SystemPath("/home/root/art_dump")),
      m_progressTicker(kProgressPeriod, [this] { return ReportProgress(); },
                       [this] { return IsPlayingState(m_playerState); }),
      m_seekTicker(kSeekPeriod, [this] { return StepFastForwardRewind(); },
                   [this] { return IsSeekingState(m_playerState); })
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
    m_progressTicker.Start();
    m_seekTicker.Start();
}

CUsbMediaPlayer::~CUsbMediaPlayer()
{
    Shutdown();
}

void CUsbMediaPlayer::Shutdown()
{
    m_progressTicker.Stop();
    m_seekTicker.Stop();
    m_albumArt.WaitForWorkers();
    const PlayerLock lock(m_playerMutex);
    StopPlayingLocked();
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

// Clients hear of a state only when what they can see changes. The tickers
// are woken here and nowhere else, before the notification: a send that
// finds nobody listening stops playback, and that state wakes them again.
bool CUsbMediaPlayer::SetPlayerStateLocked(int32_t state)
{
    const int32_t before = GetPlayerStateLocked();
    m_playerState = state;
    m_progressTicker.Wake();
    m_seekTicker.Wake();
    if (GetPlayerStateLocked() == before) {
        return true;
    }
    return SendPlayerStateChangedNotificationLocked();
}

bool CUsbMediaPlayer::IsPlayingLocked()
{
    return IsPlayingState(GetPlayerStateLocked());
}

uint32_t CUsbMediaPlayer::GetCurrentTrackTime()
{
    const PlayerLock lock(m_playerMutex);
    return m_currentTime;
}

int32_t CUsbMediaPlayer::GetRepeatMode()
{
    const PlayerLock lock(m_playerMutex);
    return m_playlist.RepeatMode();
}

bool CUsbMediaPlayer::IsShuffle()
{
    const PlayerLock lock(m_playerMutex);
    return m_playlist.IsShuffle();
}

CTrackInfo CUsbMediaPlayer::GetCurrentTrack()
{
    const PlayerLock lock(m_playerMutex);
    return m_currentTrack;
}
