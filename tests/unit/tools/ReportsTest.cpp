#include "tools/Reports.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

using namespace usbctl;

namespace {
Json::Value Parse(const std::string& text)
{
    Json::Value value;
    EXPECT_TRUE(Json::Rpc::ParseJson(text, value)) << text;
    return value;
}

Json::Value Entries(int first, int count, int total)
{
    Json::Value result(Json::objectValue);
    result["currIndex"] = first;
    result["totalCount"] = total;
    Json::Value list(Json::arrayValue);
    for (int i = first; i < first + count; ++i) {
        Json::Value entry(Json::objectValue);
        entry["ID"] = static_cast<Json::UInt>(1000 + i);
        entry["name"] = i < 2 ? "Folder" + std::to_string(i) : "song" + std::to_string(i) + ".mp3";
        entry["isFolder"] = i < 2;
        entry["path"] = "/mnt/usb-stick1";
        list.append(entry);
    }
    result["filelist"] = list;
    return result;
}
}  // namespace

TEST(ReportsTest, StatusWhilePlaying)
{
    StatusResults results;
    results.playerState = Parse(R"({"playerState":4})");
    results.trackInfo = Parse(
        R"({"trackInfo":{"ID":1,"fileName":"Blue Hour.mp3","filePath":"/mnt/usb-stick1/Jazz","isPlaying":true,)"
        R"("trackAlbum":"Late Set","trackArtist":"The Demo Trio","trackCount":3,"trackDuration":195,)"
        R"("trackIndex":2,"trackTime":42,"trackTitle":"Blue Hour"}})");
    results.repeat = Parse(R"({"mode":2})");
    results.shuffle = Parse(R"({"enabled":true})");
    results.usb = Parse(R"({"connected":true,"errorCode":""})");
    EXPECT_EQ(FormatStatus(results),
              "state:    playing\n"
              "track:    2 of 3\n"
              "title:    Blue Hour\n"
              "artist:   The Demo Trio\n"
              "album:    Late Set\n"
              "time:     0:42 / 3:15\n"
              "file:     /mnt/usb-stick1/Jazz/Blue Hour.mp3\n"
              "repeat:   all\n"
              "shuffle:  on\n"
              "usb1:     connected\n");
}

TEST(ReportsTest, StatusWithNothingLoaded)
{
    StatusResults results;
    results.playerState = Parse(R"({"playerState":-1})");
    results.trackInfo = Parse(
        R"({"trackInfo":{"ID":4294967295,"fileName":"","filePath":"/mnt","isPlaying":false,"trackAlbum":"",)"
        R"("trackArtist":"","trackCount":0,"trackDuration":0,"trackIndex":0,"trackTime":0,"trackTitle":""}})");
    results.repeat = Parse(R"({"mode":0})");
    results.shuffle = Parse(R"({"enabled":false})");
    results.usb = Parse(R"({"connected":false,"errorCode":"not_supported"})");
    const std::string text = FormatStatus(results);
    EXPECT_NE(text.find("state:    unknown\n"), std::string::npos);
    EXPECT_NE(text.find("track:    none\n"), std::string::npos);
    EXPECT_NE(text.find("time:     0:00 / 0:00\n"), std::string::npos);
    EXPECT_NE(text.find("file:     \n"), std::string::npos);
    EXPECT_NE(text.find("usb1:     not connected (not_supported)\n"), std::string::npos);
}

TEST(ReportsTest, ListingMarksFoldersAndShowsIds)
{
    EXPECT_EQ(FormatListing(Entries(0, 3, 3), 20),
              "/mnt/usb-stick1\n"
              "      1000  Folder0/\n"
              "      1001  Folder1/\n"
              "      1002  song2.mp3\n"
              "entries 1-3 of 3 (page 1 of 1)\n");
}

TEST(ReportsTest, ListingOfALaterPage)
{
    const std::string text = FormatListing(Entries(20, 5, 25), 10);
    EXPECT_NE(text.find("entries 21-25 of 25 (page 3 of 3)\n"), std::string::npos);
}

TEST(ReportsTest, EmptyListing)
{
    Json::Value result = Parse(R"({"currIndex":0,"filelist":null,"totalCount":0})");
    EXPECT_EQ(FormatListing(result, 20), "no entries (0 in all)\n");
    result["filelist"] = Json::Value(Json::arrayValue);
    EXPECT_EQ(FormatListing(result, 20), "no entries (0 in all)\n");
}

TEST(ReportsTest, PageCount)
{
    EXPECT_EQ(PageCount(25, 10), 3);
    EXPECT_EQ(PageCount(20, 10), 2);
    EXPECT_EQ(PageCount(0, 10), 1);
}

TEST(ReportsTest, SuspensionSnapshot)
{
    EXPECT_EQ(FormatSuspension(Parse(R"({"isSuspended":false})")), "no suspended track\n");
    EXPECT_EQ(FormatSuspension(Parse(R"({"fileName":"Blue Hour.mp3","filePath":"/mnt/usb-stick1/Jazz",)"
                                     R"("isShuffleOn":true,"isSuspended":true,"playerState":3,)"
                                     R"("repeatMode":1,"trackTime":75})")),
              "file:     /mnt/usb-stick1/Jazz/Blue Hour.mp3\n"
              "time:     1:15\n"
              "state:    paused\n"
              "repeat:   one\n"
              "shuffle:  on\n");
}
