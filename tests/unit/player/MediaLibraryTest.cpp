// The player's library operations on the singleton: the storage index by
// path and by device, folder lists by group and path, and their cache.
#include "player/UsbMediaPlayer.h"

#include "library/FileId.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

std::vector<std::string> Names(const std::vector<CFile>& files)
{
    std::vector<std::string> names;
    for (const CFile& file : files) {
        names.push_back(file.m_name);
    }
    return names;
}

class MediaLibraryTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", root.Path().c_str(), 1);
        for (const char* name : {"Rock/a.mp3", "Rock/Live/b.wav", "Jazz/c.wma", "top.mp3"}) {
            WriteFile(Stick() + "/" + name, "abc");
        }
    }
    void TearDown() override { unsetenv("USBMEDIA_ROOT"); }

    std::string Stick() const { return root.Path() + "/mnt/usb-stick1"; }

    TempDir root;
    CUsbMediaPlayer& player = CUsbMediaPlayer::GetInstance();
};

}  // namespace

TEST_F(MediaLibraryTest, IndexDeviceUsb1IndexesTheFirstStick)
{
    ASSERT_TRUE(player.IndexDevice("usb1"));
    EXPECT_EQ(player.GetCurrentRootPath(), Stick());
    EXPECT_EQ(Names(player._getFileListByGroupID(0, false)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
    EXPECT_NE(player.GetStorageCrc32(), 0u);
}

TEST_F(MediaLibraryTest, IndexDeviceUsb2LeavesTheIndexAsItWas)
{
    ASSERT_TRUE(player.IndexStorage(Stick() + "/Rock"));
    const uint32_t crc = player.GetStorageCrc32();
    EXPECT_FALSE(player.IndexDevice("usb2"));
    EXPECT_FALSE(player.IndexDevice(""));
    EXPECT_EQ(player.GetStorageCrc32(), crc);
    EXPECT_EQ(player.GetCurrentRootPath(), Stick());
}

TEST_F(MediaLibraryTest, RootIsTheMountPointOfTheIndexedStick)
{
    const std::string second = root.Path() + "/mnt/usb-stick2";
    WriteFile(second + "/Music/m.mp3", "abc");
    WriteFile(second + "/s.mp3", "abc");
    ASSERT_TRUE(player.IndexStorage(second + "/Music//"));
    EXPECT_EQ(player.GetCurrentRootPath(), second);
    ASSERT_TRUE(player.IndexStorage(second + "/"));
    EXPECT_EQ(player.GetCurrentRootPath(), second);
    EXPECT_EQ(Names(player._getFileListByGroupID(0, false)), (std::vector<std::string>{"Music", "s.mp3"}));

    // Below the first stick, or anywhere else, the root is the first stick.
    ASSERT_TRUE(player.IndexStorage(Stick() + "/Rock"));
    EXPECT_EQ(player.GetCurrentRootPath(), Stick());
    ASSERT_TRUE(player.IndexStorage(second));
    EXPECT_FALSE(player.IndexStorage(second + "-old"));
    EXPECT_EQ(player.GetCurrentRootPath(), Stick());
}

TEST_F(MediaLibraryTest, GroupZeroOfAnIndexBelowTheRootIsTheEmptyRoot)
{
    ASSERT_TRUE(player.IndexStorage(Stick() + "/Rock"));
    EXPECT_TRUE(player._getFileListByGroupID(0, true).empty());
    EXPECT_EQ(player.GetErrorCode(), -10);
    EXPECT_EQ(Names(player.GetFileListByPath(Stick() + "/Rock", false)), (std::vector<std::string>{"Live", "a.mp3"}));
}

TEST_F(MediaLibraryTest, MissingPathEmptiesTheIndexAndSetsMinusOne)
{
    ASSERT_TRUE(player.IndexStorage(Stick()));
    EXPECT_FALSE(player.IndexStorage(Stick() + "/missing"));
    EXPECT_EQ(player.GetErrorCode(), -1);
    EXPECT_EQ(player.GetErrorMessage(), "E: While opendir " + Stick() + "/missing");
    EXPECT_EQ(player.GetStorageCrc32(), 0u);
    EXPECT_TRUE(player._getFileListByGroupID(0, false).empty());
    EXPECT_EQ(player.GetErrorCode(), -10);
}

TEST_F(MediaLibraryTest, GroupAndPathGiveTheSameFolder)
{
    ASSERT_TRUE(player.IndexStorage(Stick()));
    const std::vector<CFile> byGroup = player._getFileListByGroupID(FileId(Stick(), "Rock"), false);
    EXPECT_EQ(player.GetErrorCode(), 0);
    EXPECT_EQ(Names(byGroup), (std::vector<std::string>{"Live", "a.mp3"}));
    EXPECT_EQ(Names(player.GetFileListByPath(Stick() + "/Rock", false)), Names(byGroup));
}

TEST_F(MediaLibraryTest, CachedFolderIsAnsweredWithoutRebuilding)
{
    ASSERT_TRUE(player.IndexStorage(Stick()));
    EXPECT_TRUE(player.GetFileListByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(player.GetErrorCode(), -10);
    // The same folder again comes from the cache: the status cleared on the
    // way in stays clear.
    EXPECT_TRUE(player.GetFileListByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(player.GetErrorCode(), 0);
    // A new index marks the cache dirty, so the folder is rebuilt.
    ASSERT_TRUE(player.IndexStorage(Stick()));
    EXPECT_TRUE(player.GetFileListByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(player.GetErrorCode(), -10);
}

TEST_F(MediaLibraryTest, SearchDoesNotLeaveResultsInTheFolderCache)
{
    ASSERT_TRUE(player.IndexStorage(Stick()));
    EXPECT_EQ(Names(player._getFileListByGroupID(0, false)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
    EXPECT_EQ(Names(player.SearchFiles(Stick(), "TOP")), (std::vector<std::string>{"top.mp3"}));
    EXPECT_EQ(Names(player._getFileListByGroupID(0, false)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
}

TEST_F(MediaLibraryTest, SearchOfAMissingPathLeavesThePlayerStatusClear)
{
    EXPECT_TRUE(player.SearchFiles(Stick() + "/missing", "").empty());
    EXPECT_EQ(player.GetErrorCode(), 0);
}
