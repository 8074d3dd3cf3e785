// Seeking to a time, fast forward and rewind, and the progress reports
// around them, as a client sees them.

#include "tests/integration/PlayerTestSupport.h"

#include <chrono>

using namespace player_test;
using testing_support::MediaFactory;

namespace {
// Long/a.mp3 (90 s, room for several 15 s steps) and Long/b.mp3 (3 s).
class SeekTest : public PlayerTest {
protected:
    void SetUp() override
    {
        PlaceOnStick(MediaFactory::Mp3(90), "Long/a.mp3");
        PlaceOnStick(MediaFactory::Mp3(3), "Long/b.mp3");
        StartDaemon();
        IndexStick();
        PlayFileAndWaitForPlaying(InStick("Long"), "a.mp3");
        ASSERT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    }

    bool SeekTo(int seconds)
    {
        Json::Value params;
        params["timeSec"] = seconds;
        return Result("seek", params).asBool();
    }

    bool Seeking(const char* method, bool enable)
    {
        Json::Value params;
        params["enable"] = enable;
        return Result(method, params).asBool();
    }

    // A fast forward or rewind run: the method that starts and ends it and
    // the player state it reports.
    struct SRun {
        const char* method;
        int state;
    };
    static constexpr SRun kForwardRun{"seekForward", kFastForward};
    static constexpr SRun kBackwardRun{"seekBackward", kRewind};

    // Starts a run and waits for its first step (a rewind from 60 s).
    void StartRun(const SRun& run)
    {
        const bool rewind = run.state == kRewind;
        if (rewind) {
            ASSERT_TRUE(SeekTo(60));
            ASSERT_GE(WaitForTime([](long t) { return t > 60; }), 61);
        }
        ASSERT_TRUE(Seeking(run.method, true));
        ASSERT_TRUE(WaitForState(run.state));
        ASSERT_GE(WaitForTime([rewind](long t) { return rewind ? t <= 50 : t >= 11; }), 0);
    }

    // Starts a run, then sends `command` (playUSB, restartSongUSB, nextUSB),
    // which ends it with a track change: stopped, then playing.
    void ChangeTrackDuringRun(const SRun& run, const char* command)
    {
        StartRun(run);
        {
            const Json::Value reply = Call(command);
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        std::vector<int> states;
        ASSERT_TRUE(WaitForState(kPlaying, &states));
        EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    }

    // Starts a run and stops the player: the run ends and does not come
    // back, so starting another is refused.
    void StopDuringRun(const SRun& run)
    {
        StartRun(run);
        {
            const Json::Value reply = Call("stopPlayingUSB");
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        ASSERT_TRUE(WaitForState(kStopped));
        EXPECT_EQ(PlayerState(), kStopped);
        {
            const Json::Value reply = TrackInfo();
            EXPECT_EQ(reply["trackTime"].asUInt(), 0u) << reply.toStyledString();
        }
        EXPECT_FALSE(Seeking(run.method, true));
    }

    // After a run was ended by a track change the track plays at normal
    // speed: two reports in a row are no step (15 s) apart.
    void ExpectNormalSpeed()
    {
        const long settled = NextTime();
        ASSERT_GE(settled, 0);
        const long after = NextTime();
        EXPECT_GE(after, settled);
        EXPECT_LT(after - settled, 15);
        EXPECT_EQ(PlayerState(), kPlaying);
    }

    void Pause()
    {
        {
            const Json::Value reply = Call("pauseUSB");
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        ASSERT_TRUE(WaitForState(kPaused));
    }
};
}  // namespace

TEST_F(SeekTest, SeekGoesToTheTimeAndReportsIt)
{
    EXPECT_TRUE(SeekTo(40));
    EXPECT_EQ(WaitForTime([](long t) { return t >= 40; }), 40);
    EXPECT_EQ(PlayerState(), kPlaying);
    const long later = WaitForTime([](long t) { return t > 40; });
    EXPECT_GE(later, 41);
    EXPECT_LE(later, 44);
}

TEST_F(SeekTest, SeekBeforeZeroGoesToZero)
{
    ASSERT_GE(WaitForTime([](long t) { return t >= 2; }), 2);
    EXPECT_TRUE(SeekTo(-5));
    EXPECT_EQ(WaitForTime([](long t) { return t == 0; }), 0);
}

TEST_F(SeekTest, SeekWhilePausedFailsAfterTheDelay)
{
    Pause();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(SeekTo(30));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(690));
    EXPECT_EQ(PlayerState(), kPaused);
}

TEST_F(SeekTest, PausedPlayerSendsNoProgress)
{
    {
        const Json::Value reply = Call("pauseUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    // The pause itself reports the time, just before the paused state.
    std::string last;
    for (Json::Value notification = Next(""); !notification.isNull(); notification = Next("")) {
        if (notification["method"].asString() == "playerStateChangedNotification") {
            EXPECT_EQ(notification["params"]["playerState"].asInt(), kPaused) << notification.toStyledString();
            break;
        }
        last = notification["method"].asString();
    }
    EXPECT_EQ(last, "trackTimeNotification");
    EXPECT_EQ(NextTime(2500), -1);
}

TEST_F(SeekTest, FastForwardStepsFifteenSecondsEveryHalfSecond)
{
    EXPECT_TRUE(Seeking("seekForward", true));
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kFastForward, &states));
    EXPECT_EQ(states, std::vector<int>{kFastForward});
    EXPECT_EQ(PlayerState(), kFastForward);
    const long first = WaitForTime([](long t) { return t >= 15; });
    const long second = WaitForTime([first](long t) { return t >= first + 14; });
    EXPECT_GE(first, 15);
    EXPECT_LE(first, 20);
    // Each step is 15 s from where the last one landed, plus what played
    // in between.
    EXPECT_GE(second, first + 14);
    EXPECT_LE(second, first + 20);

    EXPECT_TRUE(Seeking("seekForward", false));
    ASSERT_TRUE(WaitForState(kPlaying));
    ExpectNormalSpeed();
}

TEST_F(SeekTest, FastForwardPastTheEndPlaysTheNextTrack)
{
    EXPECT_TRUE(SeekTo(70));
    EXPECT_TRUE(Seeking("seekForward", true));
    ASSERT_TRUE(WaitForState(kFastForward));
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_EQ(CurrentFileName(), "b.mp3");
}

TEST_F(SeekTest, RewindStepsBackFifteenSeconds)
{
    EXPECT_TRUE(SeekTo(50));
    // Playing on from 50 s: the seek is complete and the position known.
    const long before = WaitForTime([](long t) { return t > 50; });
    ASSERT_GE(before, 51);
    EXPECT_TRUE(Seeking("seekBackward", true));
    ASSERT_TRUE(WaitForState(kRewind));
    // Each step lands 15 s before the position it started from, which plays
    // on meanwhile; the progress thread reports in between.
    const long first = WaitForTime([before](long t) { return t <= before - 10; });
    EXPECT_GE(first, before - 16);
    EXPECT_LE(first, before - 5);
    const long second = WaitForTime([first](long t) { return t <= first - 10; });
    EXPECT_GE(second, first - 16);
    EXPECT_LE(second, first - 5);
    EXPECT_TRUE(Seeking("seekBackward", false));
    ASSERT_TRUE(WaitForState(kPlaying));
}

TEST_F(SeekTest, RewindWithinTheFirstStepGoesToZeroAndKeepsStepping)
{
    EXPECT_TRUE(Seeking("seekBackward", true));
    ASSERT_TRUE(WaitForState(kRewind));
    int zeros = 0;
    while (zeros < 4) {
        const long time = NextTime();
        ASSERT_GE(time, 0);
        ASSERT_LE(time, 1);
        zeros += time == 0 ? 1 : 0;
    }
    EXPECT_EQ(PlayerState(), kRewind);
}

TEST_F(SeekTest, FastForwardTwiceFailsTheSecondTimeAndRewindMayFollow)
{
    EXPECT_TRUE(Seeking("seekForward", true));
    EXPECT_FALSE(Seeking("seekForward", true));
    EXPECT_TRUE(Seeking("seekBackward", true));
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kRewind, &states));
    EXPECT_EQ(states, (std::vector<int>{kFastForward, kRewind}));
    EXPECT_FALSE(Seeking("seekBackward", true));
    EXPECT_TRUE(Seeking("seekBackward", false));
    ASSERT_TRUE(WaitForState(kPlaying));
}

TEST_F(SeekTest, FastForwardWhilePausedFailsAndEndingItSetsPlayingWithoutResuming)
{
    Pause();
    EXPECT_FALSE(Seeking("seekForward", true));
    EXPECT_FALSE(Seeking("seekBackward", true));
    EXPECT_EQ(PlayerState(), kPaused);

    EXPECT_TRUE(Seeking("seekForward", false));
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(PlayerState(), kPlaying);
    // The pipeline stays paused: the reported time does not move.
    const long first = NextTime();
    ASSERT_GE(first, 0);
    EXPECT_EQ(NextTime(), first);
    EXPECT_EQ(NextTime(), first);
}

TEST_F(SeekTest, EndingARunThatWasNotRunningSendsNoState)
{
    EXPECT_TRUE(Seeking("seekForward", false));
    EXPECT_TRUE(Seeking("seekBackward", false));
    EXPECT_TRUE(StatesWithin(1500).empty());
    EXPECT_EQ(PlayerState(), kPlaying);
}

TEST_F(SeekTest, PauseEndsAFastForward)
{
    EXPECT_TRUE(Seeking("seekForward", true));
    ASSERT_TRUE(WaitForState(kFastForward));
    Pause();
    m_client.DrainNotifications(700);
    EXPECT_EQ(NextTime(1500), -1);
    EXPECT_EQ(PlayerState(), kPaused);
}

TEST_F(SeekTest, PlayDuringFastForwardRestartsTheTrackAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kForwardRun, "playUSB"));
    EXPECT_LE(NextTime(), 2);
    EXPECT_EQ(CurrentFileName(), "a.mp3");
    ExpectNormalSpeed();
}

TEST_F(SeekTest, PlayDuringRewindRestartsTheTrackAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kBackwardRun, "playUSB"));
    EXPECT_EQ(CurrentFileName(), "a.mp3");
    ExpectNormalSpeed();
}

TEST_F(SeekTest, RestartDuringFastForwardStartsOverAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kForwardRun, "restartSongUSB"));
    EXPECT_LE(NextTime(), 2);
    ExpectNormalSpeed();
}

TEST_F(SeekTest, RestartDuringRewindStartsOverAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kBackwardRun, "restartSongUSB"));
    EXPECT_LE(NextTime(), 2);
    ExpectNormalSpeed();
}

TEST_F(SeekTest, NextDuringFastForwardPlaysTheNextTrackAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kForwardRun, "nextUSB"));
    EXPECT_EQ(CurrentFileName(), "b.mp3");
    EXPECT_EQ(PlayerState(), kPlaying);
}

TEST_F(SeekTest, NextDuringRewindPlaysTheNextTrackAtNormalSpeed)
{
    ASSERT_NO_FATAL_FAILURE(ChangeTrackDuringRun(kBackwardRun, "nextUSB"));
    EXPECT_EQ(CurrentFileName(), "b.mp3");
    EXPECT_EQ(PlayerState(), kPlaying);
}

TEST_F(SeekTest, StopDuringFastForwardStopsTheRun)
{
    StopDuringRun(kForwardRun);
}

TEST_F(SeekTest, StopDuringRewindStopsTheRun)
{
    StopDuringRun(kBackwardRun);
}
