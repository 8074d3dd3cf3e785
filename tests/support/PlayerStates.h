#pragma once

namespace testing_support {

// The player states as playerStateChangedNotification and getPlayerState
// report them.
constexpr int kStopped = 0;
constexpr int kPaused = 3;
constexpr int kPlaying = 4;
constexpr int kFastForward = 5;
constexpr int kRewind = 6;

}  // namespace testing_support
