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
    EXPECT_FALSE(reply["result"]["connected"].asBool());
    EXPECT_EQ(reply["result"]["errorCode"], "");
    EXPECT_FALSE(reply.isMember("error"));

    UsbEvent("usb2", true);
    EXPECT_FALSE(Call("isUSBconnected", DeviceName("usb2"))["result"]["connected"].asBool());
    EXPECT_FALSE(Call("isUSBconnected", DeviceName("USB1"))["result"]["connected"].asBool());
}

TEST_F(DeviceTest, MissingFirstStickAtStartMakesItsArrivalAChange)
{
    testing_support::RemoveTree(Stick1());
    StartDaemon();
    EXPECT_FALSE(Call("isUSBconnected", DeviceName("usb1"))["result"]["connected"].asBool());

    UsbEvent("usb1", true);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", true, ""));
    EXPECT_TRUE(Call("isUSBconnected", DeviceName("usb1"))["result"]["connected"].asBool());
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
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, "not_supported"));
    const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
    EXPECT_FALSE(reply["result"]["connected"].asBool());
    EXPECT_EQ(reply["result"]["errorCode"], "not_supported");
}

TEST_F(DeviceTest, UnsupportedWinsOverUnreadable)
{
    StartDaemon();
    UsbEvent("usb1", false, false, false);
    EXPECT_EQ(Call("isUSBconnected", DeviceName("usb1"))["result"]["errorCode"], "not_supported");
}

TEST_F(DeviceTest, UnreadableStickPassesUnreadable)
{
    StartDaemon();
    UsbEvent("usb1", false, true, false);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, "unreadable"));
    EXPECT_EQ(Call("isUSBconnected", DeviceName("usb1"))["result"]["errorCode"], "unreadable");
}

TEST_F(DeviceTest, EventWithoutParamsIsARemovalOfAnUnsupportedNamelessDevice)
{
    StartDaemon();
    EXPECT_EQ(CallRaw("usbConnectionEvent"), R"({"id":1,"jsonrpc":"2.0"})");
    // Not "usb1": nothing stored, nothing sent.
    EXPECT_TRUE(NoNotification("usbConnectionNotification", 500));
    const Json::Value reply = Call("isUSBconnected", DeviceName("usb1"));
    EXPECT_TRUE(reply["result"]["connected"].asBool());
    EXPECT_EQ(reply["result"]["errorCode"], "");
}

TEST_F(DeviceTest, SecondRemovalInARowSendsNothing)
{
    StartDaemon();
    UsbEvent("usb1", false);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"], UsbNotificationParams("usb1", false, ""));

    UsbEvent("usb1", false, false, true);
    EXPECT_TRUE(NoNotification("usbConnectionNotification"));
    // The record still takes the newer error text.
    EXPECT_EQ(Call("isUSBconnected", DeviceName("usb1"))["result"]["errorCode"], "not_supported");
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
    Json::Value params;
    params["usbStoragePath"] = Stick1();
    ASSERT_TRUE(Call("indexUsbStorage", params)["result"]["success"].asBool());
    ASSERT_NE(Call("getUsbStorageCrc32")["result"]["crc32"], "0");

    UsbEvent("usb2", false);  // any removal empties the lists
    EXPECT_EQ(Call("getUsbStorageCrc32")["result"]["crc32"], "0");
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
    EXPECT_FALSE(Call("popSuspendedTrackInfo")["result"]["suspensionData"]["isSuspended"].asBool());
}

TEST_F(DeviceTest, SoftPowerOffWhileStoppedKeepsNoSnapshot)
{
    StartDaemon();
    ASSERT_EQ(PlayerState(), 0);
    Call("setSoftPowerOff", SoftPowerOff(true));
    Call("setSoftPowerOff", SoftPowerOff(false));
    EXPECT_FALSE(Call("popSuspendedTrackInfo")["result"]["suspensionData"]["isSuspended"].asBool());
}
