// The media library's state: the stick group 0 stands for, the index put in
// place after a build unless a removal came meanwhile.
#include "library/MediaLibrary.h"

#include "tests/support/RecordNames.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using testing_support::RecordNames;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

class MediaLibraryStateTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", root.Path().c_str(), 1);
        WriteFile(First() + "/Rock/a.mp3", "abc");
        WriteFile(First() + "/top.mp3", "abc");
        WriteFile(Second() + "/Music/m.mp3", "abc");
        WriteFile(Second() + "/s.mp3", "abc");
    }
    void TearDown() override { unsetenv("USBMEDIA_ROOT"); }

    std::string First() const { return root.Path() + "/mnt/usb-stick1"; }
    std::string Second() const { return root.Path() + "/mnt/usb-stick2"; }

    // Drop, walk, install: what the player does around a storage index.
    bool Index(const std::string& path)
    {
        const uint64_t removals = library.DropIndexForBuild();
        CStorageIndex built;
        const bool found = BuildStorageIndex(built, path, EWalkScope::kSticksOnly);
        library.Install(built, path, removals, status);
        return found;
    }

    TempDir root;
    CMediaLibrary library;
    CError status;
};

}  // namespace

TEST_F(MediaLibraryStateTest, RootIsTheMountPointOfTheStickLastIndexed)
{
    EXPECT_EQ(library.RootPath(), First());
    ASSERT_TRUE(Index(Second() + "/Music//"));
    EXPECT_EQ(library.RootPath(), Second());
    ASSERT_TRUE(Index(Second() + "/"));
    EXPECT_EQ(library.RootPath(), Second());
    EXPECT_EQ(RecordNames(library.ListGroup(0, false, status)), (std::vector<std::string>{"Music", "s.mp3"}));

    // Below the first stick, or anywhere else, the root is the first stick.
    ASSERT_TRUE(Index(First() + "/Rock"));
    EXPECT_EQ(library.RootPath(), First());
    ASSERT_TRUE(Index(Second()));
    EXPECT_FALSE(Index(Second() + "-old"));
    EXPECT_EQ(library.RootPath(), First());
}

TEST_F(MediaLibraryStateTest, RemovalDuringABuildKeepsTheIndexEmpty)
{
    const uint64_t removals = library.DropIndexForBuild();
    CStorageIndex built;
    ASSERT_TRUE(BuildStorageIndex(built, First(), EWalkScope::kSticksOnly));
    library.ForgetAfterRemoval();
    library.Install(built, First(), removals, status);
    EXPECT_TRUE(library.Index().Empty());
    // The next build, with no removal meanwhile, is put in place.
    ASSERT_TRUE(Index(First()));
    EXPECT_EQ(library.Index().Size(), 3u);
}

TEST_F(MediaLibraryStateTest, RemovalEmptiesTheIndexAndTheFolderList)
{
    ASSERT_TRUE(Index(First()));
    EXPECT_EQ(RecordNames(library.Search(First(), "top")), (std::vector<std::string>{"top.mp3"}));
    library.ForgetAfterRemoval();
    EXPECT_TRUE(library.Index().Empty());
    status.ClearError();
    EXPECT_TRUE(library.ListGroup(0, false, status).empty());
    EXPECT_EQ(status.m_errorCode, -10);
}

TEST_F(MediaLibraryStateTest, BrowseRemembersTheDepthAskedFor)
{
    EXPECT_FALSE(library.AtMaxDepth());
    library.ListPath(First(), true, status);
    EXPECT_TRUE(library.AtMaxDepth());
    library.ListGroup(0, false, status);
    EXPECT_FALSE(library.AtMaxDepth());
}
