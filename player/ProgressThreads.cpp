// One tick of each ticker: the progress report (position once a second
// while playing) and the fast forward / rewind step (15 s every half second
// in states 5 and 6); starting and ending a seek run, and seeking to a time.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include <chrono>
#include <thread>

namespace {
using PlayerLock = CLockGuard<CMutex>;

constexpr int64_t kSeekStepNs = 15 * GST_SECOND;
constexpr std::chrono::microseconds kSeekToTimeDelay{700000};
}  // namespace

// One progress report; false when nothing plays.
bool CUsbMediaPlayer::ReportProgress()
{
    const PlayerLock lock(m_playerMutex);
    if (!IsPlayingLocked()) {
        return false;
    }
    QueryTrackDurationLocked();
    if (SetCurrentTrackTimeLocked()) {
        static_cast<void>(SendTrackTimeNotificationLocked());  // the last step of the tick
    }
    return true;
}

// One step in the direction of the current state; false when not seeking.
bool CUsbMediaPlayer::StepFastForwardRewind()
{
    const PlayerLock lock(m_playerMutex);
    const int32_t state = GetPlayerStateLocked();
    if (state == STATE_FAST_FORWARD) {
        SeekStepLocked(ForwardSeekTargetLocked());
    } else if (state == STATE_REWIND) {
        SeekStepLocked(BackwardSeekTargetLocked());
    }
    return state == STATE_FAST_FORWARD || state == STATE_REWIND;
}

// No bound at the end: a target past the track ends the stream.
int64_t CUsbMediaPlayer::ForwardSeekTargetLocked()
{
    if (!m_pipeline) {
        return kSeekStepNs;
    }
    gint64 position = 0;
    int64_t target = 0;
    if (gst_element_query_position(m_pipeline.get(), GST_FORMAT_TIME, &position)) {
        target = position + kSeekStepNs;
    } else {
        target = static_cast<int64_t>(m_currentTime) * GST_SECOND + kSeekStepNs;
    }
    return target < 0 ? 0 : target;
}

// Within the first step, and when the position is unknown, back to 0:00.
int64_t CUsbMediaPlayer::BackwardSeekTargetLocked()
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
        m_currentTime = static_cast<uint32_t>(targetNs / GST_SECOND);
    }
    // The seek was made either way; a send that stopped playback ends the run.
    static_cast<void>(SendTrackTimeNotificationLocked());
    return true;
}

// Ending a run goes back to state 4 whatever the state was; the pipeline
// is not touched. A run is started only while playing, and not twice.
bool CUsbMediaPlayer::SeekRunLocked(bool enable, int32_t runState)
{
    if (!enable) {
        static_cast<void>(SetPlayerStateLocked(STATE_PLAYING));  // the last step
        return true;
    }
    if (!IsPlayingLocked() || GetPlayerStateLocked() == runState) {
        return false;
    }
    static_cast<void>(SetPlayerStateLocked(runState));  // the last step
    return true;
}

bool CUsbMediaPlayer::SeekForward(bool enable)
{
    const PlayerLock lock(m_playerMutex);
    return SeekRunLocked(enable, STATE_FAST_FORWARD);
}

bool CUsbMediaPlayer::SeekBackward(bool enable)
{
    const PlayerLock lock(m_playerMutex);
    return SeekRunLocked(enable, STATE_REWIND);
}

// The delay comes first and is spent without the player lock.
bool CUsbMediaPlayer::SeekToTime(int64_t seconds)
{
    std::this_thread::sleep_for(kSeekToTimeDelay);
    const PlayerLock lock(m_playerMutex);
    if (!IsPlayingLocked()) {
        return false;
    }
    const int64_t target = seconds * GST_SECOND;
    return SeekStepLocked(target < 0 ? 0 : target);
}
