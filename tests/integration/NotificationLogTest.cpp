// The log line each notification leaves at info level ("-l i"): the level
// tag, the player's source name and the line the record is known by.

#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

using device_test::DeviceTest;
using device_test::MakeMp3;
using device_test::TrackTags;
using testing_support::kWireTimeoutMs;

namespace {
Json::Value Param(const char* key, const Json::Value& value)
{
    Json::Value params;
    params[key] = value;
    return params;
}

std::string InfoRecord(int line, const std::string& text)
{
    return "[INFO ][CUsbMediaPlayer:" + std::to_string(line) + "]\n\t" + text + "\n";
}

class NotificationLogTest : public DeviceTest {};
}  // namespace

TEST_F(NotificationLogTest, EachNotificationLogsItsLineAtInfoLevel)
{
    const TrackTags tags{"Song", "Artist", "Album", device_test::CoverJpeg(), ""};
    MakeMp3(Stick1() + "/music/a.mp3", 8.0, tags);
    StartDaemon({"-l", "i"});
    Json::Value notification;

    Call("setRepeatModeUSB", Param("mode", 0));
    ASSERT_TRUE(NextNotification(notification, "repeatModeChangedNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(1962, "repeatModeChangedNotification sent"), kWireTimeoutMs));

    Call("enableShuffleUSB", Param("enable", false));
    ASSERT_TRUE(NextNotification(notification, "shuffleModeChangedNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(1978, "shuffleModeChangedNotification sent"), kWireTimeoutMs));

    {
        const Json::Value reply = PlayFile(Stick1() + "/music", "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(4));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(1946, "playerStateChangedNotification sent"), kWireTimeoutMs));
    ASSERT_TRUE(NextNotification(notification, "trackTimeNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(1994, "trackTimeNotification sent"), kWireTimeoutMs));

    {
        const Json::Value reply = Call("getTrackAlbumArt");
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(NextNotification(notification, "trackAlbumArtNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(1929, "trackAlbumArtNotification sent"), kWireTimeoutMs));

    Call("nextUSB");
    ASSERT_TRUE(NextNotification(notification, "endOfPlayListNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(2010, "endOfPlayListNotification sent"), kWireTimeoutMs));

    UsbEvent("usb1", false);
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_TRUE(m_daemon->WaitForOutput(InfoRecord(2071, "usbConnectionNotification sent"), kWireTimeoutMs))
        << m_daemon->Output();
}
