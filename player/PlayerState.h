#pragma once

#include <cstdint>

// Player states as clients see them ("playerState").
enum PlayerState : int32_t {
    STATE_UNKNOWN = -1,
    STATE_STOPPED = 0,
    STATE_PAUSED = 3,
    STATE_PLAYING = 4,
    STATE_FAST_FORWARD = 5,
    STATE_REWIND = 6,
};

// "Playing" in the wide sense: playing, fast forward or rewind.
inline bool IsPlayingState(int32_t state)
{
    return state == STATE_PLAYING || state == STATE_FAST_FORWARD || state == STATE_REWIND;
}

// Repeat modes ("mode"); other values are stored as given and act like none.
enum RepeatMode : int32_t {
    REPEAT_NONE = 0,
    REPEAT_ONE = 1,
    REPEAT_ALL = 2,
};
