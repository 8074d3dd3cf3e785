// Soft power-off and wake-up around real playback: the snapshot kept, its
// report, the states that keep none, and the snapshot kept across a killed
// daemon.

#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

using device_test::DeviceTest;
using device_test::MakeMp3;
using testing_support::WriteFile;
using testing_support::kWireTimeoutMs;

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

    // Kills the daemon as a crash or the watchdog would (nothing of it runs
    // on the way out), then starts a new one on the same root.
    void KillAndRestart(const std::map<std::string, std::string>& environment = {})
    {
        ASSERT_EQ(m_daemon->Stop(SIGKILL, kWireTimeoutMs), 128 + SIGKILL);
        m_client = testing_support::RpcClient();
        StartDaemon({"-l", "a"}, environment);
    }

    std::string StateFile() const { return m_root / "var/lib/usb-media-service/suspension.json"; }

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

TEST_F(SuspensionTest, SnapshotSurvivesAKilledDaemonAndIsReportedOnceAfterWakeUp)
{
    StartPlaying(10.0, "caf\xE9.mp3", "caf\xC3\xA9.mp3");
    Json::Value mode;
    mode["mode"] = 1;
    Call("setRepeatModeUSB", mode);
    Call("enableShuffleUSB", Flag("enable", true));
    ASSERT_TRUE(WaitForTrackTime(1));
    Call("setSoftPowerOff", SoftPowerOff(true));
    struct stat status {};
    ASSERT_EQ(stat(StateFile().c_str(), &status), 0) << m_daemon->Output();

    KillAndRestart();
    // Not pending before the wake-up, as without the restart; asking does
    // not lose it.
    EXPECT_EQ(Call("popSuspendedTrackInfo")["result"]["suspensionData"], Flag("isSuspended", false));
    Call("setSoftPowerOff", SoftPowerOff(false));
    const Json::Value data = Call("popSuspendedTrackInfo")["result"]["suspensionData"];
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString() << m_daemon->Output();
    EXPECT_EQ(data["fileName"], "caf\xC3\xA9.mp3");
    EXPECT_EQ(data["filePath"], Stick1() + "/music");
    EXPECT_GE(data["trackTime"].asUInt(), 1u);
    EXPECT_LE(data["trackTime"].asUInt(), 10u);
    EXPECT_TRUE(data["isShuffleOn"].asBool());
    EXPECT_EQ(data["repeatMode"], 1);
    EXPECT_EQ(data["playerState"], 4);
    EXPECT_EQ(data.size(), 7u);
    EXPECT_EQ(Call("popSuspendedTrackInfo")["result"]["suspensionData"], Flag("isSuspended", false));

    // Handed out means gone from the disk too: the next run has none.
    EXPECT_NE(stat(StateFile().c_str(), &status), 0);
    KillAndRestart();
    Call("setSoftPowerOff", SoftPowerOff(false));
    EXPECT_EQ(Call("popSuspendedTrackInfo")["result"]["suspensionData"], Flag("isSuspended", false));
}

TEST_F(SuspensionTest, PendingSnapshotSurvivesAKilledDaemonInSystemdsStateDirectory)
{
    const testing_support::TempDir state;
    const std::map<std::string, std::string> environment = {{"STATE_DIRECTORY", state.Path()}};
    MakeMp3(Stick1() + "/music/song.mp3", 10.0);
    StartDaemon({"-l", "a"}, environment);
    ASSERT_TRUE(PlayFile(Stick1() + "/music", "song.mp3")["result"]["success"].asBool());
    ASSERT_TRUE(WaitForState(4));
    ASSERT_TRUE(Call("pauseUSB")["result"]["success"].asBool());
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("setSoftPowerOff", SoftPowerOff(false));  // pending now
    struct stat status {};
    ASSERT_EQ(stat((state / "suspension.json").c_str(), &status), 0) << m_daemon->Output();
    EXPECT_NE(stat(StateFile().c_str(), &status), 0);

    // Still pending after the restart: no second wake-up needed.
    KillAndRestart(environment);
    const Json::Value data = Call("popSuspendedTrackInfo")["result"]["suspensionData"];
    EXPECT_TRUE(data["isSuspended"].asBool()) << data.toStyledString() << m_daemon->Output();
    EXPECT_EQ(data["fileName"], "song.mp3");
    EXPECT_EQ(data["playerState"], 3);
    EXPECT_EQ(Call("popSuspendedTrackInfo")["result"]["suspensionData"], Flag("isSuspended", false));
    EXPECT_NE(stat((state / "suspension.json").c_str(), &status), 0);
}

TEST_F(SuspensionTest, GarbageStateFileIsIgnoredWithOneLogLine)
{
    static const char kTorn[] = "{\"format\":1,\"isPending\":tr\x00\xff garbage";
    WriteFile(StateFile(), std::string(kTorn, sizeof kTorn - 1));
    StartDaemon();
    EXPECT_TRUE(Call("ping")["result"].asBool()) << m_daemon->Output();
    Call("setSoftPowerOff", SoftPowerOff(false));
    EXPECT_EQ(Call("popSuspendedTrackInfo")["result"]["suspensionData"], Flag("isSuspended", false));

    const std::string output = m_daemon->Output();
    const std::string line = "Suspension snapshot ignored: " + StateFile() + " (not JSON)\n";
    const size_t first = output.find(line);
    EXPECT_NE(first, std::string::npos) << output;
    EXPECT_EQ(output.find("Suspension snapshot", first + 1), std::string::npos) << output;
}
