// The storage index and its CRC-32 over the record ids.
#include "library/StorageIndex.h"

#include "library/FileId.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <string>
#include <vector>

using testing_support::RemoveTree;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

const std::vector<std::string> kTree = {"Rock/a.mp3", "Rock/Live/b.wav", "Jazz/c.wma", "top.mp3",
                                        "Pop/01.mp3", "Rock/01.mp3",      "Jazz/01.mp3", "notes.txt"};

// The same shape without two records of one name. Records of equal names keep
// the order the file system listed them in (a tmpfs lists the newest entry
// first), so only trees without such names give equal checksums whatever
// order they were made in.
const std::vector<std::string> kDistinctTree = {"Rock/a.mp3", "Rock/Live/b.wav", "Jazz/c.wma", "top.mp3",
                                                "Pop/01.mp3", "Rock/02.mp3",      "Jazz/03.mp3", "notes.txt"};

void WriteTree(const std::string& root, const std::vector<std::string>& files)
{
    for (const std::string& file : files) {
        WriteFile(root + "/" + file, "abc");
    }
}

uint32_t Crc(const CFileList& index)
{
    return StorageIndexCrc32(index);
}

}  // namespace

TEST(StorageIndexTest, EmptyIndexGivesZero)
{
    EXPECT_EQ(Crc(CFileList()), 0u);
}

TEST(StorageIndexTest, IdsEnterAsFourLittleEndianBytesInListOrder)
{
    CFileList index;
    index.m_files = {CFile(2631719416u, "x", "/p", true)};
    EXPECT_EQ(Crc(index), 888846999u);
    index.m_files.push_back(CFile(3990065800u, "y", "/p", false));
    EXPECT_EQ(Crc(index), 2754181654u);
    std::swap(index.m_files[0], index.m_files[1]);
    EXPECT_NE(Crc(index), 2754181654u);
}

TEST(StorageIndexTest, OnlyIdsCount)
{
    CFileList a;
    CFileList b;
    a.m_files = {CFile(5, "name", "/p", true)};
    b.m_files = {CFile(5, "other", "/q", false)};
    EXPECT_EQ(Crc(a), Crc(b));
}

TEST(StorageIndexTest, BuildListsEveryFolderAndFileSorted)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CFileList index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    EXPECT_EQ(index.Size(), 11u);  // 4 folders, 7 files
    EXPECT_EQ(index.m_rootPath, dir.Path());
    std::vector<unsigned char> bytes;
    for (const CFile& file : index.m_files) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<unsigned char>(file.m_id >> shift));
        }
    }
    EXPECT_EQ(Crc(index), static_cast<uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size()))));
    EXPECT_EQ(index.m_files[0].m_id, FileId(dir.Path(), "Jazz"));
}

TEST(StorageIndexTest, TwoBuildsOfTheSameTreeGiveTheSameChecksum)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CFileList index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    const uint32_t first = Crc(index);
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    EXPECT_EQ(Crc(index), first);
    EXPECT_NE(first, 0u);
}

TEST(StorageIndexTest, EqualTreesMadeInAnotherOrderGiveTheSameChecksum)
{
    TempDir dir;
    const std::string root = dir.Path() + "/stick";
    WriteTree(root, kDistinctTree);
    CFileList index;
    ASSERT_TRUE(BuildStorageIndex(index, root));
    const uint32_t first = Crc(index);

    RemoveTree(root);
    WriteTree(root, std::vector<std::string>(kDistinctTree.rbegin(), kDistinctTree.rend()));
    ASSERT_TRUE(BuildStorageIndex(index, root));
    EXPECT_EQ(Crc(index), first);
}

TEST(StorageIndexTest, AChangedTreeChangesTheChecksum)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CFileList index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    const uint32_t first = Crc(index);
    WriteFile(dir / "Jazz/new.mp3", "abc");
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    EXPECT_NE(Crc(index), first);
}

TEST(StorageIndexTest, BuildOnAMissingPathFailsWithAnEmptyIndex)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CFileList index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(BuildStorageIndex(index, dir / "missing"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(index.m_errorCode, -1);
    EXPECT_EQ(index.GetErrorText(), "E: While opendir " + (dir / "missing"));
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(Crc(index), 0u);
}

TEST(StorageIndexTest, BuildOnATreeWithoutMediaFails)
{
    TempDir dir;
    WriteFile(dir / "Docs/readme.txt", "x");
    CFileList index;
    EXPECT_FALSE(BuildStorageIndex(index, dir.Path()));
    EXPECT_EQ(index.m_errorCode, 0);
    EXPECT_EQ(Crc(index), 0u);
}
