// The method table that the daemon and the fuzzer share.
#include "control/UsbMediaRequestHandler.h"
#include "control/UsbMediaRequestServer.h"
#include "control/rpc/Server.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace {

const char* const kMethods[] = {
    "print", "notify", "getFileListUSB", "getFileListByGroupID", "isUSBconnected", "setRepeatModeUSB",
    "getRepeatModeUSB", "enableShuffleUSB", "isShuffleEnabledUSB", "playFileUSB",
    "getCurrentTrackInfoUSB", "playUSB", "pauseUSB", "nextUSB", "previousUSB", "stopPlayingUSB",
    "restartSongUSB", "getTrackAlbumArt", "getBufferedAlbumArt", "ping", "usbConnectionEvent",
    "playAllSongsUSB", "getCurrentPlayerState", "seekForward", "seekBackward", "playFileIndex",
    "setSoftPowerOff", "popSuspendedTrackInfo", "seek", "indexUsbStorage", "getUsbStorageCrc32",
    "getLibraryStatusUSB", "getArtistsUSB", "getGenresUSB", "getAlbumsUSB", "getTracksUSB", "searchLibraryUSB",
    "playTracksUSB",
};

TEST(MethodTableTest, RegistersEveryMethodOnce)
{
    UsbMediaRequestHandler handler;
    Json::Rpc::Server server;
    RegisterUsbMediaMethods(server, handler);
    EXPECT_EQ(server.MethodCount(), std::size(kMethods));
    for (const char* name : kMethods) {
        EXPECT_TRUE(server.HasMethod(name)) << name;
    }
    EXPECT_FALSE(server.HasMethod("searchFilesUSB"));
}

TEST(MethodTableTest, LeavesOutExcludedNames)
{
    UsbMediaRequestHandler handler;
    Json::Rpc::Server server;
    RegisterUsbMediaMethods(server, handler, {"seek", "ping"});
    EXPECT_EQ(server.MethodCount(), std::size(kMethods) - 2);
    EXPECT_FALSE(server.HasMethod("seek"));
    EXPECT_FALSE(server.HasMethod("ping"));
    EXPECT_TRUE(server.HasMethod("seekForward"));
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"seek","id":4})"),
              "{\"error\":{\"code\":-32601,\"message\":\"Method not found\"},\"id\":4,\"jsonrpc\":\"2.0\"}\n");
}

}  // namespace
