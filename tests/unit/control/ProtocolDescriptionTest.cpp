// docs/protocol/openrpc.json against the code: the registered method table
// and the notification builders. (What goes over the wire is checked against
// it by tests/protocol after the integration tests.)
#include "player/NotificationBuilders.h"
#include "control/UsbMediaRequestHandler.h"
#include "control/UsbMediaRequestServer.h"
#include "control/rpc/JsonText.h"
#include "control/rpc/Server.h"
#include "library/TagLibrary.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

Json::Value Description()
{
    Json::Value document;
    EXPECT_TRUE(Json::Rpc::ParseJson(
        testing_support::ReadFile(std::string(USBMEDIA_SOURCE_DIR) + "/docs/protocol/openrpc.json"), document));
    return document;
}

std::set<std::string> Names(const Json::Value& document, bool notifications)
{
    std::set<std::string> names;
    for (const Json::Value& method : document["methods"]) {
        if (method["x-notification"].asBool() == notifications) {
            names.insert(method["name"].asString());
        }
    }
    return names;
}

const Json::Value& Entry(const Json::Value& document, const std::string& name)
{
    for (const Json::Value& method : document["methods"]) {
        if (method["name"].asString() == name) {
            return method;
        }
    }
    static const Json::Value none;
    return none;
}

TEST(ProtocolDescriptionTest, IsOpenRpcWithEveryRegisteredMethodOnce)
{
    const Json::Value document = Description();
    EXPECT_EQ(document["openrpc"].asString().rfind("1.2.", 0), 0u);
    EXPECT_EQ(document["methods"].size(), Names(document, false).size() + Names(document, true).size())
        << "a name appears twice";
    UsbMediaRequestHandler handler;
    Json::Rpc::Server server;
    RegisterUsbMediaMethods(server, handler);
    const std::set<std::string> described = Names(document, false);
    EXPECT_EQ(described.size(), server.MethodCount());
    for (const std::string& name : described) {
        EXPECT_TRUE(server.HasMethod(name)) << name << " is described but not registered";
    }
}

TEST(ProtocolDescriptionTest, DescribesTheNineNotificationsAsBuilt)
{
    const Json::Value document = Description();
    const Json::Value built[] = {
        BuildTrackInfoNotification(STrackInfoValues{}),
        BuildTrackAlbumArtNotification(1, "/home/root/art_dump/art.dat"),
        BuildPlayerStateChangedNotification(4),
        BuildRepeatModeChangedNotification(2),
        BuildShuffleModeChangedNotification(true),
        BuildTrackTimeNotification(1, 2),
        BuildEndOfPlayListNotification(),
        BuildUsbConnectionNotification("usb1", true, ""),
        BuildLibraryScanNotification(SLibraryStatus{}),
    };
    std::set<std::string> names;
    for (const Json::Value& notification : built) {
        const std::string name = notification["method"].asString();
        names.insert(name);
        const Json::Value& entry = Entry(document, name);
        ASSERT_TRUE(entry["x-notification"].asBool()) << name;
        std::set<std::string> described;
        for (const Json::Value& param : entry["params"]) {
            described.insert(param["name"].asString());
        }
        const Json::Value::Members members = notification["params"].getMemberNames();
        EXPECT_EQ(described, std::set<std::string>(members.begin(), members.end())) << name;
    }
    EXPECT_EQ(names, Names(document, true));
}

}  // namespace
