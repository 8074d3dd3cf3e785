// The player's library operations on the singleton: the storage index by
// path, folder lists by group and path, and their cache.
#include "player/UsbMediaPlayer.h"

#include "library/FileId.h"
#include "tests/support/RecordNames.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using testing_support::RecordNames;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

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

    // The operations as the request handlers run them; each keeps the
    // status it left in `code` and `message`.
    template <typename Result>
    Result Keep(SPlayerOutcome<Result> outcome)
    {
        code = outcome.code;
        message = outcome.message;
        return std::move(outcome.value);
    }
    bool Index(const std::string& path) { return Keep(player.IndexStorageWithStatus(path)); }
    std::vector<CFile> ByGroup(uint32_t id, bool atMaxDepth)
    {
        return Keep(player.RunWithStatus(&CUsbMediaPlayer::_getFileListByGroupIDLocked, id, atMaxDepth));
    }
    std::vector<CFile> ByPath(const std::string& path, bool atMaxDepth)
    {
        return Keep(player.RunWithStatus(&CUsbMediaPlayer::GetFileListByPathLocked, path, atMaxDepth));
    }
    std::vector<CFile> Search(const std::string& path, const std::string& text)
    {
        return Keep(player.RunWithStatus(&CUsbMediaPlayer::SearchFilesLocked, path, text));
    }

    TempDir root;
    CUsbMediaPlayer& player = CUsbMediaPlayer::GetInstance();
    int code = 0;
    std::string message;
};

}  // namespace

TEST_F(MediaLibraryTest, GroupZeroOfAnIndexBelowTheRootIsTheEmptyRoot)
{
    ASSERT_TRUE(Index(Stick() + "/Rock"));
    EXPECT_TRUE(ByGroup(0, true).empty());
    EXPECT_EQ(code, -10);
    EXPECT_EQ(RecordNames(ByPath(Stick() + "/Rock", false)), (std::vector<std::string>{"Live", "a.mp3"}));
}

TEST_F(MediaLibraryTest, MissingPathEmptiesTheIndexAndSetsMinusOne)
{
    ASSERT_TRUE(Index(Stick()));
    EXPECT_FALSE(Index(Stick() + "/missing"));
    EXPECT_EQ(code, -1);
    EXPECT_EQ(message, "E: While opendir " + Stick() + "/missing");
    EXPECT_EQ(player.GetStorageCrc32(), 0u);
    EXPECT_TRUE(ByGroup(0, false).empty());
    EXPECT_EQ(code, -10);
}

TEST_F(MediaLibraryTest, GroupAndPathGiveTheSameFolder)
{
    ASSERT_TRUE(Index(Stick()));
    const std::vector<CFile> byGroup = ByGroup(FileId(Stick(), "Rock"), false);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(RecordNames(byGroup), (std::vector<std::string>{"Live", "a.mp3"}));
    EXPECT_EQ(RecordNames(ByPath(Stick() + "/Rock", false)), RecordNames(byGroup));
}

TEST_F(MediaLibraryTest, CachedFolderIsAnsweredWithoutRebuilding)
{
    ASSERT_TRUE(Index(Stick()));
    EXPECT_TRUE(ByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(code, -10);
    // The same folder again comes from the cache: the status cleared on the
    // way in stays clear.
    EXPECT_TRUE(ByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(code, 0);
    // A new index marks the cache dirty, so the folder is rebuilt.
    ASSERT_TRUE(Index(Stick()));
    EXPECT_TRUE(ByPath(Stick() + "/Empty", false).empty());
    EXPECT_EQ(code, -10);
}

TEST_F(MediaLibraryTest, SearchDoesNotLeaveResultsInTheFolderCache)
{
    ASSERT_TRUE(Index(Stick()));
    EXPECT_EQ(RecordNames(ByGroup(0, false)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
    EXPECT_EQ(RecordNames(Search(Stick(), "TOP")), (std::vector<std::string>{"top.mp3"}));
    EXPECT_EQ(RecordNames(ByGroup(0, false)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
}

TEST_F(MediaLibraryTest, SearchOfAMissingPathLeavesThePlayerStatusClear)
{
    EXPECT_TRUE(Search(Stick() + "/missing", "").empty());
    EXPECT_EQ(code, 0);
}
