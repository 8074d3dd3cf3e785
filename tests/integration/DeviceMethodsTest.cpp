// Device methods of the running daemon that need no playback: stick
// queries, stick events and their notifications, soft power-off while
// stopped.

#include "tests/integration/DeviceFixture.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using device_test::DeviceTest;

namespace {
Json::Value UsbNotificationParams(const std::string& device, bool connected, const std::string& error)
{
    Json::Value params;
    params["usbDeviceName"] = device;
    params["connected"] = connected;
    params["errorCode"] = error;
    return params;
}

Json::Value DeviceName(const std::string& name)
{
    Json::Value params;
    params["deviceName"] = name;
    return params;
}

Json::Value SoftPowerOff(bool on)
{
    Json::Value params;
    params["softPowerOff"] = on;
    return params;
}
}  // namespace

TEST_F(DeviceTest, FirstStickMountedAtStartIsConnected)
{
    StartDaemon();
    EXPECT_EQ(CallRaw("isUSBconnected", DeviceName("usb1")),
              R"({"id":1,"jsonrpc":"2.0","result":{"connected":true,"errorCode":""}})");
}

TEST_F(DeviceTest, SecondStickIsNeverReportedConnected)
{
    StartDaemon();
    const Json::Value reply = Call("isUSBconnected", DeviceName("usb2"));
    EXPECT_FALSE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["errorCode"], "") << reply.toStyledString();
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();

    UsbEvent("usb2", true);
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb2"));
        EXPECT_FALSE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("USB1"));
        EXPECT_FALSE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    }
}

TEST_F(DeviceTest, MissingFirstStickAtStartMakesItsArrivalAChange)
{
    testing_support::RemoveTree(Stick1());
    StartDaemon();
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
        EXPECT_FALSE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    }

    UsbEvent("usb1", true);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", true, "")) << notification.toStyledString();
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
        EXPECT_TRUE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    }
}

TEST_F(DeviceTest, ConnectionEventReplyHoldsOnlyVersionAndId)
{
    StartDaemon();
    Json::Value params;
    params["usbDevice"] = "usb1";
    params["usbConnected"] = true;
    params["isSupported"] = true;
    params["isReadable"] = true;
    EXPECT_EQ(CallRaw("usbConnectionEvent", params), R"({"id":1,"jsonrpc":"2.0"})");
}

TEST_F(DeviceTest, UnsupportedStickPassesNotSupported)
{
    StartDaemon();
    UsbEvent("usb1", false, false, true);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, "not_supported")) << notification.toStyledString();
    const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
    EXPECT_FALSE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["errorCode"], "not_supported") << reply.toStyledString();
}

TEST_F(DeviceTest, UnsupportedWinsOverUnreadable)
{
    StartDaemon();
    UsbEvent("usb1", false, false, false);
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
        EXPECT_EQ(reply["result"]["errorCode"], "not_supported") << reply.toStyledString();
    }
}

TEST_F(DeviceTest, UnreadableStickPassesUnreadable)
{
    StartDaemon();
    UsbEvent("usb1", false, true, false);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, "unreadable")) << notification.toStyledString();
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
        EXPECT_EQ(reply["result"]["errorCode"], "unreadable") << reply.toStyledString();
    }
}

TEST_F(DeviceTest, EventWithoutParamsIsARemovalOfAnUnsupportedNamelessDevice)
{
    StartDaemon();
    EXPECT_EQ(CallRaw("usbConnectionEvent"), R"({"id":1,"jsonrpc":"2.0"})");
    // Not "usb1": nothing stored, nothing sent.
    EXPECT_TRUE(NoNotification("usbConnectionNotification", 500));
    const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
    EXPECT_TRUE(reply["result"]["connected"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["errorCode"], "") << reply.toStyledString();
}

TEST_F(DeviceTest, SecondRemovalInARowSendsNothing)
{
    StartDaemon();
    UsbEvent("usb1", false);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, "")) << notification.toStyledString();

    UsbEvent("usb1", false, false, true);
    EXPECT_TRUE(NoNotification("usbConnectionNotification"));
    // The record still takes the newer error text.
    {
        const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
        EXPECT_EQ(reply["result"]["errorCode"], "not_supported") << reply.toStyledString();
    }
}

TEST_F(DeviceTest, SecondStickEventsAreNeverNotified)
{
    StartDaemon();
    UsbEvent("usb2", false);
    UsbEvent("usb2", true);
    EXPECT_TRUE(NoNotification("usbConnectionNotification"));
}

TEST_F(DeviceTest, RemovalEmptiesTheStorageIndex)
{
    device_test::MakeMp3(Stick1() + "/a.mp3", 0.5);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getUsbStorageCrc32");
        ASSERT_NE(reply["result"]["crc32"], "0") << reply.toStyledString();
    }

    UsbEvent("usb2", false);  // any removal empties the lists
    {
        const Json::Value reply = Call("getUsbStorageCrc32");
        EXPECT_EQ(reply["result"]["crc32"], "0") << reply.toStyledString();
    }
}

TEST_F(DeviceTest, SoftPowerOffAlwaysAnswersTrue)
{
    StartDaemon();
    EXPECT_EQ(CallRaw("setSoftPowerOff", SoftPowerOff(true)),
              R"({"id":1,"jsonrpc":"2.0","result":{"setSoftPowerOff":true}})");
    EXPECT_EQ(CallRaw("setSoftPowerOff", SoftPowerOff(false)),
              R"({"id":2,"jsonrpc":"2.0","result":{"setSoftPowerOff":true}})");
    EXPECT_EQ(CallRaw("setSoftPowerOff"), R"({"id":3,"jsonrpc":"2.0","result":{"setSoftPowerOff":true}})");
}

TEST_F(DeviceTest, PopWithoutSuspensionReportsNone)
{
    StartDaemon();
    EXPECT_EQ(CallRaw("popSuspendedTrackInfo"),
              R"({"id":1,"jsonrpc":"2.0","result":{"suspensionData":{"isSuspended":false}}})");
}

TEST_F(DeviceTest, WakeUpWithoutRecordLeavesNothingPending)
{
    StartDaemon();
    Call("setSoftPowerOff", SoftPowerOff(false));
    {
        const Json::Value reply = Call("popSuspendedTrackInfo");
        EXPECT_FALSE(reply["result"]["suspensionData"]["isSuspended"].asBool()) << reply.toStyledString();
    }
}

TEST_F(DeviceTest, SoftPowerOffWhileStoppedKeepsNoSnapshot)
{
    StartDaemon();
    ASSERT_EQ(PlayerState(), 0);
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("setSoftPowerOff", SoftPowerOff(false));
    {
        const Json::Value reply = Call("popSuspendedTrackInfo");
        EXPECT_FALSE(reply["result"]["suspensionData"]["isSuspended"].asBool()) << reply.toStyledString();
    }
}
