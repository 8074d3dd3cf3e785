// The handler's unregistered text search, called directly, on a stick below
// a root prefix (a search, like every walk a client asks for, reads only the
// sticks).
#include "control/UsbMediaRequestHandler.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <cstdlib>
#include <string>
#include <vector>

using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

class SearchFilesTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", dir.Path().c_str(), 1);
        for (const char* name : {"Love me.mp3", "Other.mp3", "LOVE/unrelated.mp3", "Mix/glove.wav", "Mix/lover.wma",
                                 "Cl\xe9/loved.mp3"}) {
            WriteFile(Stick() + "/" + name, "abc");
        }
    }
    void TearDown() override { unsetenv("USBMEDIA_ROOT"); }

    std::string Stick() const { return dir / "mnt/usb-stick1"; }

    Json::Value Search(const std::string& path, const std::string& text, int itemCount, int startIndex)
    {
        Json::Value request(Json::objectValue);
        request["jsonrpc"] = "2.0";
        request["id"] = 9;
        request["method"] = "searchFilesUSB";
        request["params"]["path"] = path;
        request["params"]["searchText"] = text;
        request["params"]["itemCount"] = itemCount;
        request["params"]["startIndex"] = startIndex;
        Json::Value response;
        EXPECT_TRUE(handler.searchFilesUSB(request, response));
        return response;
    }

    static std::vector<std::string> Names(const Json::Value& response)
    {
        std::vector<std::string> names;
        for (const Json::Value& entry : response["result"]["filelist"]) {
            names.push_back(entry["name"].asString());
        }
        return names;
    }

    TempDir dir;
    UsbMediaRequestHandler handler;
};

}  // namespace

// Matches, sorted: folders Cl\xe9, Mix; files "Love me.mp3", glove.wav,
// loved.mp3, lover.wma.
TEST_F(SearchFilesTest, WholeListWhenItFits)
{
    const Json::Value response = Search(Stick(), "LOVE", 10, 3);
    EXPECT_EQ(response["jsonrpc"].asString(), "2.0");
    EXPECT_EQ(response["id"].asInt(), 9);
    EXPECT_FALSE(response.isMember("error"));
    EXPECT_EQ(response["result"]["currIndex"].asUInt(), 0u);
    EXPECT_TRUE(response["result"]["totalCount"].isUInt());
    EXPECT_EQ(response["result"]["totalCount"].asUInt(), 6u);
    EXPECT_EQ(Names(response), (std::vector<std::string>{"Cl\xc3\xa9", "Mix", "Love me.mp3", "glove.wav",
                                                         "loved.mp3", "lover.wma"}));
}

TEST_F(SearchFilesTest, EntriesCarryNoId)
{
    const Json::Value response = Search(Stick(), "glove", 10, 0);
    ASSERT_EQ(response["result"]["filelist"].size(), 2u);
    const Json::Value& file = response["result"]["filelist"][1];
    EXPECT_EQ(file["name"].asString(), "glove.wav");
    EXPECT_EQ(file["path"].asString(), Stick() + "/Mix");
    EXPECT_FALSE(file["isFolder"].asBool());
    EXPECT_FALSE(file.isMember("ID"));
    EXPECT_TRUE(response["result"]["filelist"][0]["isFolder"].asBool());
}

TEST_F(SearchFilesTest, PageWrapsToTheStart)
{
    const Json::Value response = Search(Stick(), "love", 3, -2);
    EXPECT_EQ(response["result"]["currIndex"].asUInt(), 4u);
    EXPECT_EQ(Names(response), (std::vector<std::string>{"loved.mp3", "lover.wma", "Cl\xc3\xa9"}));
}

TEST_F(SearchFilesTest, NothingFoundSetsTheError)
{
    const Json::Value response = Search(Stick(), "zzz", 10, 0);
    ASSERT_TRUE(response.isMember("error"));
    EXPECT_EQ(response["error"]["code"].asInt(), 0);  // the search cleared the status
    EXPECT_EQ(response["result"]["totalCount"].asUInt(), 0u);
    EXPECT_EQ(response["result"]["currIndex"].asUInt(), 0u);
}

TEST_F(SearchFilesTest, PathIsUsedAsReceived)
{
    // No UTF-8 conversion: only the storage's own bytes reach the folder.
    EXPECT_EQ(Names(Search(Stick() + "/Cl\xe9", "", 10, 0)), (std::vector<std::string>{"loved.mp3"}));
    const Json::Value utf8 = Search(Stick() + "/Cl\xc3\xa9", "", 10, 0);
    EXPECT_TRUE(utf8.isMember("error"));
    EXPECT_EQ(utf8["result"]["totalCount"].asUInt(), 0u);
}

TEST_F(SearchFilesTest, MissingParamsSearchTheEmptyPath)
{
    Json::Value response;
    EXPECT_TRUE(handler.searchFilesUSB(Json::Value(Json::objectValue), response));
    EXPECT_TRUE(response["id"].isNull());
    EXPECT_TRUE(response.isMember("error"));
    EXPECT_EQ(response["result"]["totalCount"].asUInt(), 0u);
}

TEST_F(SearchFilesTest, AFolderOutsideTheSticksIsAnsweredAsAMissingOne)
{
    WriteFile(dir / "elsewhere/love.mp3", "abc");
    const Json::Value outside = Search(Stick() + "/../../elsewhere", "", 10, 0);
    const Json::Value missing = Search(Stick() + "/../../nowhere", "", 10, 0);
    EXPECT_EQ(outside["result"], missing["result"]) << outside.toStyledString();
    EXPECT_EQ(outside["error"], missing["error"]) << outside.toStyledString();
}
