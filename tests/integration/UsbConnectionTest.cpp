// Stick removals while a track plays, through the running daemon.

#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

using device_test::DeviceTest;
using device_test::MakeMp3;

namespace {
constexpr double kTrackSeconds = 8.0;
}  // namespace

TEST_F(DeviceTest, RemovingFirstStickStopsItsTrack)
{
    MakeMp3(Stick1() + "/music/a.mp3", kTrackSeconds);
    MakeMp3(Stick1() + "/music/b.mp3", kTrackSeconds);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1() + "/music", "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(4));

    UsbEvent("usb1", false);
    ASSERT_TRUE(WaitForState(0));
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_FALSE(notification["params"]["connected"].asBool()) << notification.toStyledString();
    EXPECT_EQ(notification["params"]["usbDeviceName"], "usb1") << notification.toStyledString();
    EXPECT_EQ(PlayerState(), 0);

    const Json::Value info = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(info["trackCount"], 0) << info.toStyledString();
    EXPECT_EQ(info["fileName"], "") << info.toStyledString();
    EXPECT_EQ(info["filePath"], "") << info.toStyledString();

    // No playlist any more: neither direction has anywhere to go.
    for (const char* method : {"nextUSB", "previousUSB"}) {
        const Json::Value reply = Call(method);
        EXPECT_FALSE(reply["result"]["success"].asBool()) << method << ": " << reply.toStyledString();
        EXPECT_EQ(reply["error"]["code"], -4) << method << ": " << reply.toStyledString();
        EXPECT_EQ(reply["error"]["message"], "E: No file selected to play - /") << method << ": " << reply.toStyledString();
    }
    EXPECT_EQ(PlayerState(), 0);
}

TEST_F(DeviceTest, RemovingFirstStickKeepsSecondStickPlaying)
{
    MakeMp3(Stick2() + "/b.mp3", kTrackSeconds);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick2());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getUsbStorageCrc32");
        ASSERT_NE(reply["result"]["crc32"], "0") << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(Stick2(), "b.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(4));

    UsbEvent("usb1", false);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_FALSE(notification["params"]["connected"].asBool()) << notification.toStyledString();
    EXPECT_EQ(notification["params"]["usbDeviceName"], "usb1") << notification.toStyledString();

    // The lists are gone, the track goes on.
    {
        const Json::Value reply = Call("getUsbStorageCrc32");
        EXPECT_EQ(reply["result"]["crc32"], "0") << reply.toStyledString();
    }
    EXPECT_EQ(PlayerState(), 4);
    m_client.DrainNotifications();
    ASSERT_TRUE(NextNotification(notification, "trackTimeNotification"));
    const Json::Value info = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(info["fileName"], "b.mp3") << info.toStyledString();
    EXPECT_TRUE(info["isPlaying"].asBool()) << info.toStyledString();
}

TEST_F(DeviceTest, RemovingSecondStickStopsItsTrackWithoutNotification)
{
    MakeMp3(Stick2() + "/b.mp3", kTrackSeconds);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick2(), "b.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(4));

    UsbEvent("usb2", false);
    EXPECT_EQ(PlayerState(), 0);
    EXPECT_TRUE(NoNotification("usbConnectionNotification"));
    {
        const Json::Value reply = Call("getCurrentTrackInfoUSB");
        EXPECT_EQ(reply["result"]["trackInfo"]["trackCount"], 0) << reply.toStyledString();
    }
}

TEST_F(DeviceTest, RemovingSecondStickKeepsFirstStickPlaying)
{
    MakeMp3(Stick1() + "/a.mp3", kTrackSeconds);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(4));

    UsbEvent("usb2", false);
    EXPECT_EQ(PlayerState(), 4);
    EXPECT_TRUE(NoNotification("usbConnectionNotification", 500));
}
