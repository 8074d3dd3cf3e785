// The progress thread (position once a second while playing), the fast
// forward / rewind thread (15 s steps every half second in states 5 and 6)
// and seeking to a time.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include <chrono>

namespace {
using PlayerLock = CLockGuard<CMutex>;
using std::chrono::microseconds;

constexpr int64_t kSeekStepNs = 15 * GST_SECOND;
constexpr microseconds kProgressPeriod{1000000};
constexpr microseconds kSeekPeriod{500000};
constexpr microseconds kSeekToTimeDelay{700000};

bool IsSeekingState(int32_t state)
{
    return state == STATE_FAST_FORWARD || state == STATE_REWIND;
}

// Sleeps for `period`, cut short only by the stop flag.
void SleepUnlessStopping(CMutex& mutex, std::condition_variable& wake, microseconds period,
                         const std::atomic<bool>& stop)
{
    CUniqueLock lock(mutex);
    wake.wait_for(lock.Native(), period, [&stop] { return stop.load(); });
}
}  // namespace

// Wakes are sent with the thread's mutex taken and released, so a thread
// about to wait either sees the new state or gets the wake.
void CUsbMediaPlayer::WakeProgressThread()
{
    { const CLockGuard<CMutex> lock(m_progressMutex); }
    m_progressCond.notify_all();
}

void CUsbMediaPlayer::WakeSeekThread()
{
    { const CLockGuard<CMutex> lock(m_seekMutex); }
    m_seekCond.notify_all();
}

void CUsbMediaPlayer::TrackProgressUpdate(CUsbMediaPlayer* player)
{
    CUsbMediaPlayer& self = *player;
    while (!self.m_stopThreads) {
        if (self.ReportProgress()) {
            SleepUnlessStopping(self.m_progressMutex, self.m_progressCond, kProgressPeriod, self.m_stopThreads);
            continue;
        }
        CUniqueLock lock(self.m_progressMutex);
        self.m_progressCond.wait(lock.Native(), [&self] {
            return self.m_stopThreads || IsPlayingState(self.CachedPlayerState());
        });
    }
}

// One progress report; false when nothing plays.
bool CUsbMediaPlayer::ReportProgress()
{
    const PlayerLock lock(m_playerMutex);
    if (!IsPlayingLocked()) {
        return false;
    }
    QueryTrackDurationLocked();
    if (SetCurrentTrackTimeLocked()) {
        SendTrackTimeNotificationLocked();
    }
    return true;
}

void CUsbMediaPlayer::SeekFastForwardRewind(CUsbMediaPlayer* player)
{
    CUsbMediaPlayer& self = *player;
    while (!self.m_stopThreads) {
        if (IsSeekingState(self.StepFastForwardRewind())) {
            SleepUnlessStopping(self.m_seekMutex, self.m_seekCond, kSeekPeriod, self.m_stopThreads);
            continue;
        }
        CUniqueLock lock(self.m_seekMutex);
        self.m_seekCond.wait(lock.Native(), [&self] {
            return self.m_stopThreads || IsSeekingState(self.CachedPlayerState());
        });
    }
}

// One step in the direction of the current state; returns that state.
int32_t CUsbMediaPlayer::StepFastForwardRewind()
{
    const PlayerLock lock(m_playerMutex);
    const int32_t state = GetPlayerStateLocked();
    if (state == STATE_FAST_FORWARD) {
        SeekStepLocked(ForwardSeekTarget());
    } else if (state == STATE_REWIND) {
        SeekStepLocked(BackwardSeekTarget());
    }
    return state;
}

// No bound at the end: a target past the track ends the stream.
int64_t CUsbMediaPlayer::ForwardSeekTarget()
{
    if (!m_pipeline) {
        return kSeekStepNs;
    }
    gint64 position = 0;
    int64_t target = 0;
    if (gst_element_query_position(m_pipeline.get(), GST_FORMAT_TIME, &position)) {
        target = position + kSeekStepNs;
    } else {
        target = static_cast<int64_t>(GetCurrentTrackTimeLocked()) * GST_SECOND + kSeekStepNs;
    }
    return target < 0 ? 0 : target;
}

// Within the first step, and when the position is unknown, back to 0:00.
int64_t CUsbMediaPlayer::BackwardSeekTarget()
{
    gint64 position = 0;
    if (!m_pipeline || !gst_element_query_position(m_pipeline.get(), GST_FORMAT_TIME, &position)) {
        return 0;
    }
    const int64_t target = position - kSeekStepNs;
    return target < 0 ? 0 : target;
}

// A flushing seek; on success clients get the new position.
bool CUsbMediaPlayer::SeekStepLocked(int64_t targetNs)
{
    if (!m_pipeline || !gst_element_seek_simple(m_pipeline.get(), GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, targetNs)) {
        return false;
    }
    if (!SetCurrentTrackTimeLocked()) {
        SetCurrentTrackTimeValueLocked(static_cast<uint32_t>(targetNs / GST_SECOND));
    }
    SendTrackTimeNotificationLocked();
    return true;
}

// Ending a run goes back to state 4 whatever the state was; the pipeline
// is not touched.
bool CUsbMediaPlayer::SeekForward(bool enable)
{
    const PlayerLock lock(m_playerMutex);
    if (!enable) {
        SetPlayerStateLocked(STATE_PLAYING);
        WakeProgressThread();
        return true;
    }
    if (!IsPlayingLocked() || GetPlayerStateLocked() == STATE_FAST_FORWARD) {
        return false;
    }
    SetPlayerStateLocked(STATE_FAST_FORWARD);
    WakeSeekThread();
    return true;
}

bool CUsbMediaPlayer::SeekBackward(bool enable)
{
    const PlayerLock lock(m_playerMutex);
    if (!enable) {
        SetPlayerStateLocked(STATE_PLAYING);
        WakeProgressThread();
        return true;
    }
    if (!IsPlayingLocked() || GetPlayerStateLocked() == STATE_REWIND) {
        return false;
    }
    SetPlayerStateLocked(STATE_REWIND);
    WakeSeekThread();
    return true;
}

// The delay comes first and is spent without the player lock.
bool CUsbMediaPlayer::SeekToTime(int64_t seconds)
{
    std::this_thread::sleep_for(kSeekToTimeDelay);
    const PlayerLock lock(m_playerMutex);
    if (!IsPlayingLocked()) {
        return false;
    }
    gint64 position = 0;
    if (m_pipeline) {
        gst_element_query_position(m_pipeline.get(), GST_FORMAT_TIME, &position);
    }
    const int64_t target = seconds * GST_SECOND;
    return SeekStepLocked(target < 0 ? 0 : target);
}
