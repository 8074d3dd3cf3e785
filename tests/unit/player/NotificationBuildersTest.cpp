// Every notification byte for byte as clients receive it.

#include "player/NotificationBuilders.h"
#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

namespace {
std::string Wire(const Json::Value& value)
{
    return Json::Rpc::ToWireText(value);
}
}  // namespace

TEST(NotificationBuildersTest, RepeatMode)
{
    EXPECT_EQ(Wire(BuildRepeatModeChangedNotification(2)),
              "{\"jsonrpc\":\"2.0\",\"method\":\"repeatModeChangedNotification\",\"params\":{\"mode\":2}}\n");
    EXPECT_EQ(Wire(BuildRepeatModeChangedNotification(-7)),
              "{\"jsonrpc\":\"2.0\",\"method\":\"repeatModeChangedNotification\",\"params\":{\"mode\":-7}}\n");
}

TEST(NotificationBuildersTest, PlayerState)
{
    EXPECT_EQ(Wire(BuildPlayerStateChangedNotification(4)),
              "{\"jsonrpc\":\"2.0\",\"method\":\"playerStateChangedNotification\",\"params\":{\"playerState\":4}}\n");
    EXPECT_EQ(BuildPlayerStateChangedNotification(4)["params"]["playerState"].type(), Json::intValue);
}

TEST(NotificationBuildersTest, ShuffleMode)
{
    EXPECT_EQ(Wire(BuildShuffleModeChangedNotification(true)),
              "{\"jsonrpc\":\"2.0\",\"method\":\"shuffleModeChangedNotification\",\"params\":{\"enabled\":true}}\n");
}

TEST(NotificationBuildersTest, TrackTime)
{
    const Json::Value notification = BuildTrackTimeNotification(61, 4000000000u);
    EXPECT_EQ(Wire(notification), "{\"jsonrpc\":\"2.0\",\"method\":\"trackTimeNotification\","
                                  "\"params\":{\"trackDuration\":4000000000,\"trackTime\":61}}\n");
    EXPECT_EQ(notification["params"]["trackTime"].type(), Json::uintValue);
    EXPECT_EQ(notification["params"]["trackDuration"].type(), Json::uintValue);
}

TEST(NotificationBuildersTest, EndOfPlaylistIsAlwaysTrue)
{
    EXPECT_EQ(Wire(BuildEndOfPlayListNotification()),
              "{\"jsonrpc\":\"2.0\",\"method\":\"endOfPlayListNotification\",\"params\":{\"isEndOfPlaylist\":true}}\n");
}

TEST(NotificationBuildersTest, AlbumArt)
{
    const Json::Value notification = BuildTrackAlbumArtNotification(3, "/home/root/art_dump/art0.dat");
    EXPECT_EQ(Wire(notification), "{\"jsonrpc\":\"2.0\",\"method\":\"trackAlbumArtNotification\","
                                  "\"params\":{\"artFilePath\":\"/home/root/art_dump/art0.dat\",\"trackIndex\":3}}\n");
    EXPECT_EQ(notification["params"]["trackIndex"].type(), Json::uintValue);
}

TEST(NotificationBuildersTest, UsbConnection)
{
    EXPECT_EQ(Wire(BuildUsbConnectionNotification("usb1", false, "badFile")),
              "{\"jsonrpc\":\"2.0\",\"method\":\"usbConnectionNotification\","
              "\"params\":{\"connected\":false,\"errorCode\":\"badFile\",\"usbDeviceName\":\"usb1\"}}\n");
}

TEST(NotificationBuildersTest, TrackInfo)
{
    STrackInfoValues track;
    track.title = "T";
    track.artist = "A";
    track.album = "B";
    track.index = 1;
    track.count = 3;
    track.time = 2;
    track.duration = 5;
    track.isPlaying = true;
    track.filePath = "/mnt/usb-stick1/Al";
    track.fileName = "01.mp3";
    track.id = 4294967295u;
    const Json::Value notification = BuildTrackInfoNotification(track);
    EXPECT_EQ(Wire(notification),
              "{\"jsonrpc\":\"2.0\",\"method\":\"trackInfoNotification\",\"params\":{\"trackInfo\":{"
              "\"ID\":4294967295,\"fileName\":\"01.mp3\",\"filePath\":\"/mnt/usb-stick1/Al\",\"isPlaying\":true,"
              "\"trackAlbum\":\"B\",\"trackArtist\":\"A\",\"trackCount\":3,\"trackDuration\":5,\"trackIndex\":1,"
              "\"trackTime\":2,\"trackTitle\":\"T\"}}}\n");
    const Json::Value& info = notification["params"]["trackInfo"];
    for (const char* key : {"trackIndex", "trackCount", "trackTime", "trackDuration", "ID"}) {
        EXPECT_EQ(info[key].type(), Json::uintValue) << key;
    }
    EXPECT_FALSE(notification.isMember("id"));
}

TEST(NotificationBuildersTest, EmptyTrackInfoIsComplete)
{
    const Json::Value info = BuildTrackInfoObject(STrackInfoValues());
    EXPECT_EQ(info.size(), 11u);
    EXPECT_EQ(info["trackIndex"].asUInt(), 0u);
    EXPECT_EQ(info["trackTitle"].asString(), "");
    EXPECT_FALSE(info["isPlaying"].asBool());
}
