// Folder lists derived from the storage index, cached by folder path.
#include "library/FolderGroups.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

std::vector<std::string> Names(const CFileList& list)
{
    std::vector<std::string> names;
    for (const CFile& file : list.m_files) {
        names.push_back(file.m_name);
    }
    return names;
}

// A stick at <dir>/s: folders B, a, B/In and the look-alike Bx beside B.
class FolderGroupsTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char* file : {"z.mp3", "Y.mp3", "a/a.mp3", "B/x.mp3", "B/In/deep.mp3", "Bx/other.mp3"}) {
            WriteFile(Stick() + "/" + file, "abc");
        }
        ASSERT_TRUE(BuildStorageIndex(index, Stick()));
    }

    std::string Stick() const { return dir / "s"; }
    std::string Folder(const std::string& relative) const { return relative.empty() ? Stick() : Stick() + "/" + relative; }

    // Adds a file below the stick and rebuilds the index, as a new scan does.
    void AddFile(const std::string& relative)
    {
        WriteFile(Folder(relative), "abc");
        ASSERT_TRUE(BuildStorageIndex(index, Stick()));
    }

    TempDir dir;
    CStorageIndex index;
    CFolderGroups groups;
};

}  // namespace

TEST_F(FolderGroupsTest, ListsTheRecordsWhosePathIsExactlyTheFolder)
{
    const CFileList& root = groups.ListFolder(index, Folder(""));
    EXPECT_EQ(Names(root), (std::vector<std::string>{"B", "Bx", "a", "Y.mp3", "z.mp3"}));
    EXPECT_EQ(groups.m_groupPath, Folder(""));
    EXPECT_FALSE(groups.m_groupDirty);

    EXPECT_EQ(Names(groups.ListFolder(index, Folder("B"))), (std::vector<std::string>{"In", "x.mp3"}));
    EXPECT_EQ(Names(groups.ListFolder(index, Folder("B/In"))), (std::vector<std::string>{"deep.mp3"}));
}

TEST_F(FolderGroupsTest, TheSameFolderIsAnsweredFromTheCache)
{
    groups.ListFolder(index, Folder("B"));
    EXPECT_TRUE(groups.IsCached(Folder("B")));
    AddFile("B/new.mp3");
    EXPECT_EQ(Names(groups.ListFolder(index, Folder("B"))), (std::vector<std::string>{"In", "x.mp3"}));
}

TEST_F(FolderGroupsTest, MarkDirtyForcesARebuildOfTheSameFolder)
{
    groups.ListFolder(index, Folder("B"));
    AddFile("B/new.mp3");
    groups.MarkDirty();
    EXPECT_FALSE(groups.IsCached(Folder("B")));
    EXPECT_EQ(Names(groups.ListFolder(index, Folder("B"))), (std::vector<std::string>{"In", "new.mp3", "x.mp3"}));
    EXPECT_TRUE(groups.IsCached(Folder("B")));
}

TEST_F(FolderGroupsTest, AnotherFolderRebuilds)
{
    groups.ListFolder(index, Folder("B"));
    EXPECT_FALSE(groups.IsCached(Folder("")));
    EXPECT_EQ(groups.ListFolder(index, Folder("")).Size(), 5u);
}

TEST_F(FolderGroupsTest, AFreshCacheIsDirty)
{
    EXPECT_TRUE(groups.m_groupDirty);
    EXPECT_FALSE(groups.IsCached(""));
    EXPECT_TRUE(groups.ListFolder(CStorageIndex(), "").Empty());
    EXPECT_TRUE(groups.IsCached(""));
}

TEST_F(FolderGroupsTest, AFolderWithoutRecordsGivesAnEmptyList)
{
    EXPECT_TRUE(groups.ListFolder(index, dir / "nowhere").Empty());
    EXPECT_TRUE(groups.ListFolder(index, Stick() + "/").Empty());  // no normalising of the path
    EXPECT_EQ(groups.m_usbFileList.m_errorCode, 0);
}

TEST_F(FolderGroupsTest, ClearEmptiesTheListAndMarksItDirty)
{
    groups.ListFolder(index, Folder(""));
    groups.Clear();
    EXPECT_TRUE(groups.m_usbFileList.Empty());
    EXPECT_FALSE(groups.IsCached(Folder("")));
    EXPECT_EQ(groups.ListFolder(index, Folder("")).Size(), 5u);
}
