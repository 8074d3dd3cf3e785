// The notifications every connected client receives: exact bytes, more
// than one client, and the rule that nothing plays without a listener.

#include "tests/integration/PlayerTestSupport.h"

#include <algorithm>

using namespace player_test;
using testing_support::MediaFactory;
using testing_support::RpcClient;

namespace {
class ClientNotificationTest : public PlayerTest {
protected:
    void SetUp() override
    {
        PlaceOnStick(MediaFactory::Mp3(3), "Album/01.mp3");
        PlaceOnStick(MediaFactory::Mp3(3), "Album/02.mp3");
    }

    // Every line `from` receives until it has been quiet for `quietMs`.
    static std::vector<std::string> LinesWithin(RpcClient& from, int quietMs)
    {
        std::vector<std::string> lines;
        std::string line;
        while (from.ReadLine(line, quietMs)) {
            lines.push_back(line);
        }
        return lines;
    }
};

const std::string kRepeatTwo =
    R"({"jsonrpc":"2.0","method":"repeatModeChangedNotification","params":{"mode":2}})";
}  // namespace

TEST_F(ClientNotificationTest, RepeatModeChangeSendsExactlyOneLine)
{
    StartDaemon();
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"setRepeatModeUSB","id":1,"params":{"mode":2}})"));
    const std::vector<std::string> lines = LinesWithin(m_client, 1000);
    EXPECT_EQ(lines, (std::vector<std::string>{kRepeatTwo, R"({"id":1,"jsonrpc":"2.0","result":{"mode":2}})"}));
}

TEST_F(ClientNotificationTest, TwoClientsReceiveIdenticalBytesAndAGoneOneStopsNobody)
{
    StartDaemon();
    IndexStick();
    RpcClient other;
    ASSERT_TRUE(other.Connect(Daemon().Port()));
    RpcClient leaving;
    ASSERT_TRUE(leaving.Connect(Daemon().Port()));
    // A reply shows the daemon has taken the connection in.
    {
        const Json::Value reply = other.Call("ping");
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = leaving.Call("ping");
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"setRepeatModeUSB","id":1,"params":{"mode":2}})"));
    std::string line;
    ASSERT_TRUE(other.ReadLine(line, kWireTimeoutMs));
    EXPECT_EQ(line, kRepeatTwo);
    ASSERT_TRUE(leaving.ReadLine(line, kWireTimeoutMs));
    EXPECT_EQ(line, kRepeatTwo);
    leaving.Close();
    ASSERT_TRUE(m_client.ReadLine(line, kWireTimeoutMs));
    ASSERT_EQ(line, kRepeatTwo);
    ASSERT_TRUE(m_client.ReadLine(line, kWireTimeoutMs));

    // A stretch of playback: both hear the same lines in the same order.
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"playFileUSB","id":2,"params":{"file":{"name":"01.mp3","path":")" +
                               Stick() + R"(/Album","isFolder":false}}})"));
    std::vector<std::string> heard;
    while (heard.empty() || heard.back().find(R"("trackTime":1})") == std::string::npos) {
        ASSERT_TRUE(other.ReadLine(line, kWireTimeoutMs));
        heard.push_back(line);
    }
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"stopPlayingUSB","id":3})"));
    for (const std::string& more : LinesWithin(other, 1500)) {
        heard.push_back(more);
    }
    std::vector<std::string> notified;
    for (const std::string& received : LinesWithin(m_client, 500)) {
        if (testing_support::ParseLine(received).isMember("method")) {
            notified.push_back(received);
        }
    }
    EXPECT_EQ(notified, heard);
    EXPECT_EQ(heard.front(), R"({"jsonrpc":"2.0","method":"playerStateChangedNotification","params":{"playerState":4}})");
    EXPECT_EQ(heard.back(), R"({"jsonrpc":"2.0","method":"playerStateChangedNotification","params":{"playerState":0}})");
}

TEST_F(ClientNotificationTest, WithNobodyListeningPlaybackStopsAtTheNextNotification)
{
    StartDaemon();
    IndexStick();
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    m_client.Close();
    EXPECT_TRUE(Daemon().WaitForOutput(
        "[ERROR][CUsbMediaPlayer:1873]\n\tUsb Service Error: don't know whom to notify so its stopping playback!\n",
        kWireTimeoutMs))
        << Daemon().Output();
    ASSERT_TRUE(m_client.Connect(Daemon().Port()));
    EXPECT_EQ(PlayerState(), kStopped);
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["fileName"].asString(), "") << reply.toStyledString();
    }
}

TEST_F(ClientNotificationTest, SettingTheStateInForceSendsNothing)
{
    StartDaemon();
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"stopPlayingUSB","id":1})"));
    EXPECT_EQ(LinesWithin(m_client, 1000),
              std::vector<std::string>{R"({"id":1,"jsonrpc":"2.0","result":{"success":true}})"});
}

TEST_F(ClientNotificationTest, GoingFromPlayingToFastForwardSendsOneState)
{
    PlaceOnStick(MediaFactory::Mp3(90), "Long/a.mp3");
    StartDaemon();
    IndexStick();
    PlayFileAndWaitForPlaying(InStick("Long"), "a.mp3");
    Json::Value params;
    params["enable"] = true;
    ASSERT_TRUE(Result("seekForward", params).asBool());
    EXPECT_EQ(StatesWithin(700), std::vector<int>{kFastForward});
}

TEST_F(ClientNotificationTest, TrackIndexIsZeroWithoutPlaylistAndOneForTheFirstTrack)
{
    StartDaemon();
    IndexStick();
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackIndex"].asUInt(), 0u) << reply.toStyledString();
    }
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackIndex"].asUInt(), 1u) << reply.toStyledString();
    }
}

TEST_F(ClientNotificationTest, EndOfPlaylistBytes)
{
    StartDaemon();
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"nextUSB","id":"n"})"));
    EXPECT_EQ(LinesWithin(m_client, 1000),
              (std::vector<std::string>{
                  R"({"jsonrpc":"2.0","method":"endOfPlayListNotification","params":{"isEndOfPlaylist":true}})",
                  R"({"error":{"code":-4,"message":"E: No file selected to play - /"},"id":"n","jsonrpc":"2.0","result":{"success":false}})"}));
}

TEST_F(ClientNotificationTest, ShuffleChangeBytes)
{
    StartDaemon();
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"enableShuffleUSB","id":2,"params":{"enable":true}})"));
    EXPECT_EQ(LinesWithin(m_client, 1000),
              (std::vector<std::string>{
                  R"({"jsonrpc":"2.0","method":"shuffleModeChangedNotification","params":{"enabled":true}})",
                  R"({"id":2,"jsonrpc":"2.0","result":{"enabled":true}})"}));
}

TEST_F(ClientNotificationTest, StickAbsentAtStartIsNotConnectedAndItsArrivalIsAChange)
{
    testing_support::RemoveTree(Stick());
    StartDaemon({}, false);
    Json::Value query;
    query["deviceName"] = "usb1";
    {
        const Json::Value reply = Result("isUSBconnected", query);
        EXPECT_FALSE(reply["connected"].asBool()) << reply.toStyledString();
    }
    Json::Value event;
    event["usbDevice"] = "usb1";
    event["usbConnected"] = true;
    event["isSupported"] = true;
    event["isReadable"] = true;
    Call("usbConnectionEvent", event);
    const Json::Value notification = Next("usbConnectionNotification");
    EXPECT_EQ(WireText(notification), R"({"jsonrpc":"2.0","method":"usbConnectionNotification",)"
                                  R"("params":{"connected":true,"errorCode":"","usbDeviceName":"usb1"}})" "\n");
    {
        const Json::Value reply = Result("isUSBconnected", query);
        EXPECT_TRUE(reply["connected"].asBool()) << reply.toStyledString();
    }
}

TEST_F(ClientNotificationTest, StickPresentAtStartIsConnectedAndItsArrivalIsNoChange)
{
    StartDaemon();
    Json::Value query;
    query["deviceName"] = "usb1";
    {
        const Json::Value reply = Result("isUSBconnected", query);
        EXPECT_TRUE(reply["connected"].asBool()) << reply.toStyledString();
    }
    Json::Value event;
    event["usbDevice"] = "usb1";
    event["usbConnected"] = true;
    event["isSupported"] = true;
    event["isReadable"] = true;
    Call("usbConnectionEvent", event);
    EXPECT_TRUE(Next("usbConnectionNotification", 1000).isNull());
}
