// Soft power-off and wake-up around real playback: the snapshot kept, its
// report, and the states that keep none.

#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

using device_test::DeviceTest;
using device_test::MakeMp3;

namespace {
Json::Value SoftPowerOff(bool on)
{
    Json::Value params;
    params["softPowerOff"] = on;
    return params;
}

Json::Value Flag(const char* key, bool on)
{
    Json::Value params;
    params[key] = on;
    return params;
}

class SuspensionTest : public DeviceTest {
protected:
    // Plays `seconds` of audio from stick 1's "music" folder.
    void StartPlaying(double seconds, const std::string& diskName = "song.mp3",
                      const std::string& clientName = "song.mp3")
    {
        MakeMp3(Stick1() + "/music/" + diskName, seconds);
        StartDaemon();
        {
            const Json::Value reply = PlayFile(Stick1() + "/music", clientName);
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        ASSERT_TRUE(WaitForState(4));
    }

    Json::Value PowerCycleAndPop()
    {
        Call("setSoftPowerOff", SoftPowerOff(true));
        Call("setSoftPowerOff", SoftPowerOff(false));
        return Call("popSuspendedTrackInfo")["result"]["suspensionData"];
    }

    // Waits until the progress thread reports at least `seconds`.
    bool WaitForTrackTime(unsigned seconds)
    {
        Json::Value notification;
        while (NextNotification(notification, "trackTimeNotification")) {
            if (notification["params"]["trackTime"].asUInt() >= seconds) {
                return true;
            }
        }
        return false;
    }
};
}  // namespace

TEST_F(SuspensionTest, SnapshotWhilePlayingIsReportedOnceAfterWakeUp)
{
    // The name is ISO8859-1 on the stick and UTF-8 on the wire.
    StartPlaying(10.0, "caf\xE9.mp3", "caf\xC3\xA9.mp3");
    Json::Value mode;
    mode["mode"] = 2;
    Call("setRepeatModeUSB", mode);
    Call("enableShuffleUSB", Flag("enable", true));
    ASSERT_TRUE(WaitForTrackTime(1));

    Call("setSoftPowerOff", SoftPowerOff(true));
    // Before the wake-up nothing is pending.
    {
        const Json::Value reply = Call("popSuspendedTrackInfo");
        EXPECT_FALSE(reply["result"]["suspensionData"]["isSuspended"].asBool()) << reply.toStyledString();
    }
    Call("setSoftPowerOff", SoftPowerOff(false));
    const Json::Value data = Call("popSuspendedTrackInfo")["result"]["suspensionData"];

    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["fileName"], "caf\xC3\xA9.mp3") << data.toStyledString();
    EXPECT_EQ(data["filePath"], Stick1() + "/music") << data.toStyledString();
    EXPECT_GE(data["trackTime"].asUInt(), 1u) << data.toStyledString();
    EXPECT_LE(data["trackTime"].asUInt(), 10u) << data.toStyledString();
    EXPECT_TRUE(data["isShuffleOn"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["repeatMode"], 2) << data.toStyledString();
    EXPECT_EQ(data["playerState"], 4) << data.toStyledString();
    EXPECT_EQ(data.size(), 7u);

    // Handed out once; playback itself is untouched.
    {
        const Json::Value reply = Call("popSuspendedTrackInfo");
        EXPECT_EQ(reply["result"]["suspensionData"],
                  Flag("isSuspended", false)) << reply.toStyledString();
    }
    EXPECT_EQ(PlayerState(), 4);
}

TEST_F(SuspensionTest, SnapshotWhilePausedKeepsPausedState)
{
    StartPlaying(10.0);
    {
        const Json::Value reply = Call("pauseUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_EQ(PlayerState(), 3);

    const Json::Value data = PowerCycleAndPop();
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["playerState"], 3) << data.toStyledString();
    EXPECT_EQ(data["fileName"], "song.mp3") << data.toStyledString();
    EXPECT_FALSE(data["isShuffleOn"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["repeatMode"], 0) << data.toStyledString();
    EXPECT_EQ(PlayerState(), 3);
}

TEST_F(SuspensionTest, SoftPowerOffWhileFastForwardingKeepsNoSnapshot)
{
    StartPlaying(120.0);
    {
        const Json::Value reply = Call("seekForward", Flag("enable", true));
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    ASSERT_EQ(PlayerState(), 5);

    {
        const Json::Value reply = PowerCycleAndPop();
        EXPECT_FALSE(reply["isSuspended"].asBool()) << reply.toStyledString();
    }
}

TEST_F(SuspensionTest, SoftPowerOffWhileFastForwardingKeepsTheOlderSnapshot)
{
    StartPlaying(120.0);
    Call("setSoftPowerOff", SoftPowerOff(true));  // playing: kept
    {
        const Json::Value reply = Call("seekForward", Flag("enable", true));
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    ASSERT_EQ(PlayerState(), 5);

    const Json::Value data = PowerCycleAndPop();
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["playerState"], 4) << data.toStyledString();
}

TEST_F(SuspensionTest, SoftPowerOffAfterStopKeepsTheOlderSnapshot)
{
    StartPlaying(10.0);
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("stopPlayingUSB");
    ASSERT_EQ(PlayerState(), 0);

    const Json::Value data = PowerCycleAndPop();
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["fileName"], "song.mp3") << data.toStyledString();
}

TEST_F(SuspensionTest, PendingSnapshotSurvivesASecondSoftPowerOffWhileStopped)
{
    StartPlaying(10.0);
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("setSoftPowerOff", SoftPowerOff(false));  // pending now
    Call("stopPlayingUSB");
    ASSERT_EQ(PlayerState(), 0);
    // Off again before anyone asked: nothing to capture, the pending
    // snapshot stays and is still pending.
    Call("setSoftPowerOff", SoftPowerOff(true));

    const Json::Value data = Call("popSuspendedTrackInfo")["result"]["suspensionData"];
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["fileName"], "song.mp3") << data.toStyledString();
    EXPECT_EQ(data["playerState"], 4) << data.toStyledString();
}

TEST_F(SuspensionTest, PendingSnapshotIsReplacedByASecondSoftPowerOffWhilePaused)
{
    StartPlaying(10.0);
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("setSoftPowerOff", SoftPowerOff(false));
    {
        const Json::Value reply = Call("pauseUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Call("setSoftPowerOff", SoftPowerOff(true));

    // Still pending, without another wake-up: the newer snapshot is reported.
    const Json::Value data = Call("popSuspendedTrackInfo")["result"]["suspensionData"];
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString();
    EXPECT_EQ(data["playerState"], 3) << data.toStyledString();
    {
        const Json::Value reply = Call("popSuspendedTrackInfo");
        EXPECT_FALSE(reply["result"]["suspensionData"]["isSuspended"].asBool()) << reply.toStyledString();
    }
}
