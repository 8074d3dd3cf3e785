#include "tools/WatchFormatter.h"

#include "control/rpc/JsonText.h"
#include "tools/Replies.h"

#include <gtest/gtest.h>

using usbctl::NotificationLine;
using usbctl::WatchFormatter;

namespace {
Json::Value Parse(const std::string& text)
{
    Json::Value value;
    EXPECT_TRUE(Json::Rpc::ParseJson(text, value)) << text;
    return value;
}

Json::Value Notification(const std::string& method, const std::string& params)
{
    return Parse(R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + "}");
}

const char* kTrackInfo =
    R"({"trackInfo":{"ID":660045541,"fileName":"Blue Hour.mp3","filePath":"/mnt/usb-stick1/Jazz",)"
    R"("isPlaying":true,"trackAlbum":"Late Set","trackArtist":"The Demo Trio","trackCount":3,)"
    R"("trackDuration":195,"trackIndex":1,"trackTime":0,"trackTitle":"Blue Hour"}})";
}  // namespace

TEST(WatchFormatterTest, TrackLineWithTitleArtistAlbumAndDuration)
{
    EXPECT_EQ(NotificationLine(Notification("trackInfoNotification", kTrackInfo)),
              "track 1/3: \"Blue Hour\" by The Demo Trio, album \"Late Set\" (3:15)");
}

TEST(WatchFormatterTest, TrackWithoutTagsShowsTheFileName)
{
    const auto line = NotificationLine(Notification(
        "trackInfoNotification",
        R"({"trackInfo":{"fileName":"a.wav","trackTitle":"","trackArtist":"","trackAlbum":"",)"
        R"("trackIndex":2,"trackCount":5,"trackDuration":0}})"));
    EXPECT_EQ(line, "track 2/5: \"a.wav\"");
}

TEST(WatchFormatterTest, TimeLine)
{
    EXPECT_EQ(NotificationLine(Notification("trackTimeNotification", R"({"trackDuration":195,"trackTime":42})")),
              "time 0:42 / 3:15");
}

TEST(WatchFormatterTest, StatesByName)
{
    const std::pair<int, const char*> states[] = {
        {0, "stopped"}, {3, "paused"}, {4, "playing"}, {5, "fast-forward"}, {6, "rewind"}};
    for (const auto& state : states) {
        EXPECT_EQ(NotificationLine(Notification("playerStateChangedNotification",
                                                R"({"playerState":)" + std::to_string(state.first) + "}")),
                  std::string("state: ") + state.second);
    }
}

TEST(WatchFormatterTest, ModesEndOfPlaylistUsbAndArt)
{
    EXPECT_EQ(NotificationLine(Notification("repeatModeChangedNotification", R"({"mode":2})")), "repeat: all");
    EXPECT_EQ(NotificationLine(Notification("repeatModeChangedNotification", R"({"mode":1})")), "repeat: one");
    EXPECT_EQ(NotificationLine(Notification("shuffleModeChangedNotification", R"({"enabled":true})")),
              "shuffle: on");
    EXPECT_EQ(NotificationLine(Notification("endOfPlayListNotification", R"({"isEndOfPlaylist":true})")),
              "end of playlist");
    EXPECT_EQ(NotificationLine(Notification("usbConnectionNotification",
                                            R"({"connected":false,"errorCode":"badFile","usbDeviceName":"usb1"})")),
              "usb usb1: disconnected (badFile)");
    EXPECT_EQ(NotificationLine(Notification("usbConnectionNotification",
                                            R"({"connected":true,"errorCode":"","usbDeviceName":"usb1"})")),
              "usb usb1: connected");
    EXPECT_EQ(NotificationLine(Notification("trackAlbumArtNotification",
                                            R"({"artFilePath":"/home/root/art_dump/art.dat","trackIndex":1})")),
              "album art: /home/root/art_dump/art.dat (track 1)");
}

TEST(WatchFormatterTest, LibraryScanAsItGoesAndWhenItEnds)
{
    EXPECT_EQ(NotificationLine(Notification("libraryScanNotification",
                                            R"({"albums":0,"artists":1,"genres":1,"scanned":120,)"
                                            R"("state":"scanning","total":800,"tracks":120})")),
              "library: scanning, 120 of 800 files");
    EXPECT_EQ(NotificationLine(Notification("libraryScanNotification",
                                            R"({"albums":1,"artists":1,"genres":2,"scanned":2,)"
                                            R"("state":"ready","total":2,"tracks":2})")),
              "library: ready, 2 tracks, 1 artist, 1 album, 2 genres");
    EXPECT_EQ(NotificationLine(Notification("libraryScanNotification",
                                            R"({"albums":0,"artists":0,"genres":0,"scanned":0,)"
                                            R"("state":"idle","total":0,"tracks":0})")),
              "library: idle");
}

TEST(WatchFormatterTest, UnknownNotificationShowsItsParams)
{
    EXPECT_EQ(NotificationLine(Notification("somethingNew", R"({"b":1,"a":"x"})")), R"(somethingNew: {"a":"x","b":1})");
}

TEST(WatchFormatterTest, MembersOfUnexpectedTypesDoNotThrow)
{
    const Json::Value odd = Notification("trackTimeNotification", R"({"trackDuration":"long","trackTime":-3})");
    EXPECT_EQ(NotificationLine(odd), usbctl::CompactJson(odd));
    WatchFormatter formatter(true);
    EXPECT_EQ(formatter.Format(odd), usbctl::CompactJson(odd) + "\n");
}

TEST(WatchFormatterTest, PlainOutputIsOneLinePerNotification)
{
    WatchFormatter formatter(false);
    EXPECT_EQ(formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":20,"trackTime":1})")),
              "time 0:01 / 0:20\n");
    EXPECT_EQ(formatter.Format(Notification("playerStateChangedNotification", R"({"playerState":3})")),
              "state: paused\n");
    EXPECT_EQ(formatter.Finish(), "");
}

TEST(WatchFormatterTest, TerminalRedrawsTheTimeLineInPlace)
{
    WatchFormatter formatter(true);
    const std::string first =
        formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":20,"trackTime":10})"));
    EXPECT_EQ(first, "\rtime 0:10 / 0:20 [###############---------------]");
    const std::string second =
        formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":20,"trackTime":20})"));
    EXPECT_EQ(second, "\rtime 0:20 / 0:20 [##############################]");
    // The next other line first ends the time line.
    EXPECT_EQ(formatter.Format(Notification("playerStateChangedNotification", R"({"playerState":0})")),
              "\nstate: stopped\n");
    EXPECT_EQ(formatter.Finish(), "");
}

TEST(WatchFormatterTest, ShorterTimeLineBlanksTheRest)
{
    WatchFormatter formatter(true);
    const std::string longer =
        formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":6000,"trackTime":5999})"));
    const std::string shorter =
        formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":60,"trackTime":1})"));
    EXPECT_EQ(shorter.size(), longer.size());
    EXPECT_EQ(shorter.substr(0, 18), "\rtime 0:01 / 1:00 ");
    EXPECT_EQ(shorter.back(), ' ');
}

TEST(WatchFormatterTest, FinishEndsAnOpenTimeLine)
{
    WatchFormatter formatter(true);
    formatter.Format(Notification("trackTimeNotification", R"({"trackDuration":20,"trackTime":1})"));
    EXPECT_EQ(formatter.Finish(), "\n");
    EXPECT_EQ(formatter.Finish(), "");
}
