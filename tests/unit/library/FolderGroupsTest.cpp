// Folder lists derived from the storage index, cached by folder path.
#include "library/FolderGroups.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> Names(const CFileList& list)
{
    std::vector<std::string> names;
    for (const CFile& file : list.m_files) {
        names.push_back(file.m_name);
    }
    return names;
}

class FolderGroupsTest : public testing::Test {
protected:
    void SetUp() override
    {
        index.m_files = {
            CFile(1, "B", "/s", true),        CFile(2, "a", "/s", true),           CFile(3, "In", "/s/B", true),
            CFile(4, "z.mp3", "/s", false),   CFile(5, "Y.mp3", "/s", false),      CFile(6, "x.mp3", "/s/B", false),
            CFile(7, "deep.mp3", "/s/B/In", false), CFile(8, "other.mp3", "/s/Bx", false),
        };
    }

    CFileList index;
    CFolderGroups groups;
};

}  // namespace

TEST_F(FolderGroupsTest, ListsTheRecordsWhosePathIsExactlyTheFolder)
{
    const CFileList& root = groups.ListFolder(index, "/s");
    EXPECT_EQ(Names(root), (std::vector<std::string>{"B", "a", "Y.mp3", "z.mp3"}));
    EXPECT_EQ(groups.m_groupPath, "/s");
    EXPECT_FALSE(groups.m_groupDirty);

    EXPECT_EQ(Names(groups.ListFolder(index, "/s/B")), (std::vector<std::string>{"In", "x.mp3"}));
    EXPECT_EQ(Names(groups.ListFolder(index, "/s/B/In")), (std::vector<std::string>{"deep.mp3"}));
}

TEST_F(FolderGroupsTest, TheSameFolderIsAnsweredFromTheCache)
{
    groups.ListFolder(index, "/s/B");
    EXPECT_TRUE(groups.IsCached("/s/B"));
    index.m_files.push_back(CFile(9, "new.mp3", "/s/B", false));
    EXPECT_EQ(Names(groups.ListFolder(index, "/s/B")), (std::vector<std::string>{"In", "x.mp3"}));
}

TEST_F(FolderGroupsTest, MarkDirtyForcesARebuildOfTheSameFolder)
{
    groups.ListFolder(index, "/s/B");
    index.m_files.push_back(CFile(9, "new.mp3", "/s/B", false));
    groups.MarkDirty();
    EXPECT_FALSE(groups.IsCached("/s/B"));
    EXPECT_EQ(Names(groups.ListFolder(index, "/s/B")), (std::vector<std::string>{"In", "new.mp3", "x.mp3"}));
    EXPECT_TRUE(groups.IsCached("/s/B"));
}

TEST_F(FolderGroupsTest, AnotherFolderRebuilds)
{
    groups.ListFolder(index, "/s/B");
    EXPECT_FALSE(groups.IsCached("/s"));
    EXPECT_EQ(groups.ListFolder(index, "/s").Size(), 4u);
}

TEST_F(FolderGroupsTest, AFreshCacheIsDirty)
{
    EXPECT_TRUE(groups.m_groupDirty);
    EXPECT_FALSE(groups.IsCached(""));
    EXPECT_TRUE(groups.ListFolder(CFileList(), "").Empty());
    EXPECT_TRUE(groups.IsCached(""));
}

TEST_F(FolderGroupsTest, AFolderWithoutRecordsGivesAnEmptyList)
{
    EXPECT_TRUE(groups.ListFolder(index, "/nowhere").Empty());
    EXPECT_TRUE(groups.ListFolder(index, "/s/").Empty());  // no normalising of the path
    EXPECT_EQ(groups.m_usbFileList.m_errorCode, 0);
}

TEST_F(FolderGroupsTest, ClearEmptiesTheListAndMarksItDirty)
{
    groups.ListFolder(index, "/s");
    groups.Clear();
    EXPECT_TRUE(groups.m_usbFileList.Empty());
    EXPECT_FALSE(groups.IsCached("/s"));
    EXPECT_EQ(groups.ListFolder(index, "/s").Size(), 4u);
}
