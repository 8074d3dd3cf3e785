// playFileIndex after a folder play that failed: the previous playlist is
// gone although its count remains, and the call must not read it. The
// folders lie on a stick below a root prefix, where the player reads.
#include "control/UsbMediaRequestHandler.h"

#include "tests/support/TempDir.h"

#include <gst/gst.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <cstdlib>
#include <string>

using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

Json::Value Request(const char* method, const Json::Value& params)
{
    Json::Value request(Json::objectValue);
    request["jsonrpc"] = "2.0";
    request["id"] = 1;
    request["method"] = method;
    request["params"] = params;
    return request;
}

Json::Value FolderParams(const std::string& path, const std::string& name)
{
    Json::Value params(Json::objectValue);
    params["file"]["name"] = name;
    params["file"]["path"] = path;
    params["file"]["isFolder"] = true;
    return params;
}

class PlayFileIndexTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        setenv("USBMEDIA_AUDIO_SINK", "fakesink sync=false", 1);
        gst_init(nullptr, nullptr);
    }

    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", dir.Path().c_str(), 1);
        WriteFile(Stick() + "/Album/a.mp3", "not really audio");
        WriteFile(Stick() + "/Album/b.mp3", "not really audio");
        WriteFile(Stick() + "/Quiet/notes.txt", "no media here");
    }

    void TearDown() override
    {
        Json::Value response;
        handler.stopPlayingUSB(Request("stopPlayingUSB", Json::Value()), response);
        unsetenv("USBMEDIA_ROOT");
    }

    std::string Stick() const { return dir / "mnt/usb-stick1"; }

    Json::Value Call(bool (UsbMediaRequestHandler::*method)(const Json::Value&, Json::Value&),
                     const char* name, const Json::Value& params)
    {
        Json::Value response;
        EXPECT_TRUE((handler.*method)(Request(name, params), response));
        return response;
    }

    // The storage index ID of Album/<name>.
    Json::UInt AlbumEntryId(const std::string& name)
    {
        Json::Value params(Json::objectValue);
        params["path"] = Stick() + "/Album";
        params["itemCount"] = 10;
        const Json::Value reply = Call(&UsbMediaRequestHandler::getFileListUSB, "getFileListUSB", params);
        for (const Json::Value& entry : reply["result"]["filelist"]) {
            if (entry["name"].asString() == name) {
                return entry["ID"].asUInt();
            }
        }
        ADD_FAILURE() << "no index entry for " << name;
        return 0;
    }

    TempDir dir;
    UsbMediaRequestHandler handler;
};

TEST_F(PlayFileIndexTest, AfterAFailedFolderPlayStartsTheChosenFile)
{
    Json::Value index(Json::objectValue);
    index["usbStoragePath"] = Stick();
    ASSERT_TRUE(Call(&UsbMediaRequestHandler::indexUsbStorage, "indexUsbStorage", index)["result"]["success"].asBool());
    const Json::UInt second = AlbumEntryId("b.mp3");

    const Json::Value album = Call(&UsbMediaRequestHandler::playFileUSB, "playFileUSB", FolderParams(Stick(), "Album"));
    ASSERT_TRUE(album["result"]["success"].asBool()) << album.toStyledString();
    const Json::Value quiet = Call(&UsbMediaRequestHandler::playFileUSB, "playFileUSB", FolderParams(Stick(), "Quiet"));
    ASSERT_EQ(quiet["error"]["code"].asInt(), -2) << quiet.toStyledString();

    Json::Value params(Json::objectValue);
    params["index"] = second;
    const Json::Value reply = Call(&UsbMediaRequestHandler::playFileIndex, "playFileIndex", params);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_TRUE(reply["result"]["success"].asBool());
    const Json::Value track = Call(&UsbMediaRequestHandler::getCurrentTrackInfoUSB, "getCurrentTrackInfoUSB", Json::Value());
    EXPECT_EQ(track["result"]["trackInfo"]["fileName"].asString(), "b.mp3");
}

}  // namespace
