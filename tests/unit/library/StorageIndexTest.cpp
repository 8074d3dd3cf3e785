// The storage index and its CRC-32 over the record ids.
#include "library/StorageIndex.h"

#include "library/FileId.h"
#include "library/FolderGroups.h"
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

// The compact index and its folder-to-records map, against the plain scan.
namespace {

// Many equal names in many folders, so the order of equal names left by the
// sorts is exercised as well.
std::vector<std::string> ManyEqualNames()
{
    std::vector<std::string> files = kTree;
    for (int artist = 0; artist < 6; ++artist) {
        for (int album = 0; album < 5; ++album) {
            for (int track = 0; track < 7; ++track) {
                files.push_back("Artist " + std::to_string(artist) + "/CD" + std::to_string(album) + "/0" +
                                std::to_string(track) + ".mp3");
            }
        }
        files.push_back("Artist " + std::to_string(artist) + "/01.mp3");
    }
    files.push_back("Docs/readme.txt");  // a folder without media
    return files;
}

void ExpectSameRecord(const CFile& actual, const CFile& expected)
{
    EXPECT_EQ(actual.m_id, expected.m_id);
    EXPECT_EQ(actual.m_name, expected.m_name);
    EXPECT_EQ(actual.m_path, expected.m_path);
    EXPECT_EQ(actual.m_isFolder, expected.m_isFolder);
}

void ExpectSameRecords(const std::vector<CFile>& actual, const std::vector<CFile>& expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        ExpectSameRecord(actual[i], expected[i]);
    }
}

std::vector<CFile> Children(const CStorageIndex& index, const std::string& folderPath)
{
    std::vector<CFile> records;
    for (const uint32_t position : index.ChildrenOf(folderPath)) {
        records.push_back(index.At(position));
    }
    return records;
}

// What the full walk over the scanned list finds for the folder.
std::vector<CFile> ScannedChildren(const CFileList& list, const std::string& folderPath)
{
    std::vector<CFile> records;
    for (const CFile& file : list.m_files) {
        if (file.m_path == folderPath) {
            records.push_back(file);
        }
    }
    return records;
}

class CompactIndexTest : public testing::Test {
protected:
    void SetUp() override
    {
        WriteTree(dir.Path(), ManyEqualNames());
        ASSERT_TRUE(BuildStorageIndex(scanned, dir.Path()));
        ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    }

    TempDir dir;
    CFileList scanned;
    CStorageIndex index;
};

}  // namespace

TEST_F(CompactIndexTest, HoldsTheScannedRecordsInTheScanOrder)
{
    EXPECT_EQ(index.Size(), scanned.Size());
    EXPECT_EQ(index.RootPath(), dir.Path());
    ExpectSameRecords(index.Records(), scanned.m_files);
    EXPECT_EQ(StorageIndexCrc32(index), StorageIndexCrc32(scanned));
    EXPECT_NE(StorageIndexCrc32(index), 0u);
}

TEST_F(CompactIndexTest, AStartingPathWithTrailingSlashesKeepsTheScanRecords)
{
    ASSERT_TRUE(BuildStorageIndex(scanned, dir.Path() + "//"));
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path() + "//"));
    ExpectSameRecords(index.Records(), scanned.m_files);
    EXPECT_EQ(StorageIndexCrc32(index), StorageIndexCrc32(scanned));
    ExpectSameRecords(Children(index, dir.Path()), ScannedChildren(scanned, dir.Path()));
}

TEST_F(CompactIndexTest, EveryFoldersChildrenAreWhatTheFullWalkFindsInTheSameOrder)
{
    std::vector<std::string> folders = {dir.Path()};
    for (const CFile& file : scanned.m_files) {
        if (file.m_isFolder) {
            folders.push_back(file.m_path + "/" + file.m_name);
        }
    }
    size_t total = 0;
    for (const std::string& folder : folders) {
        SCOPED_TRACE(folder);
        const std::vector<CFile> expected = ScannedChildren(scanned, folder);
        EXPECT_FALSE(expected.empty());
        ExpectSameRecords(Children(index, folder), expected);
        total += expected.size();
    }
    EXPECT_EQ(total, index.Size());  // every record belongs to one folder
}

TEST_F(CompactIndexTest, TheRootFolderHoldsTheTopLevelRecords)
{
    const std::vector<CFile> root = Children(index, dir.Path());
    std::vector<std::string> names;
    for (const CFile& file : root) {
        names.push_back(file.m_name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Artist 0", "Artist 1", "Artist 2", "Artist 3", "Artist 4",
                                               "Artist 5", "Jazz", "Pop", "Rock", "top.mp3"}));
}

TEST_F(CompactIndexTest, AFolderWithoutMediaHasNoChildren)
{
    EXPECT_TRUE(index.ChildrenOf(dir / "Docs").empty());
    EXPECT_EQ(index.ChildrenOf(dir / "Docs").size(), 0u);
}

TEST_F(CompactIndexTest, AnUnknownFolderHasNoChildren)
{
    EXPECT_TRUE(index.ChildrenOf(dir / "nowhere").empty());
    EXPECT_TRUE(index.ChildrenOf("").empty());
    EXPECT_TRUE(index.ChildrenOf(dir.Path() + "/").empty());  // no normalising of the path
    EXPECT_TRUE(index.ChildrenOf(dir / "Rock/Live/b.wav").empty());
}

TEST_F(CompactIndexTest, FolderGroupsListTheSameFromBothIndexes)
{
    CFolderGroups fromScan;
    CFolderGroups fromIndex;
    for (const std::string& folder : {dir.Path(), dir / "Rock", dir / "Artist 3/CD2", dir / "Docs", dir / "x"}) {
        SCOPED_TRACE(folder);
        ExpectSameRecords(fromIndex.ListFolder(index, folder).m_files, fromScan.ListFolder(scanned, folder).m_files);
        EXPECT_TRUE(fromIndex.IsCached(folder));
    }
}

TEST_F(CompactIndexTest, FindByIdGivesTheFirstRecordWithTheIdOrTheRoot)
{
    for (size_t i = 0; i < scanned.Size(); i += 7) {
        ExpectSameRecord(index.FindById(scanned.m_files[i].m_id), scanned.FindById(scanned.m_files[i].m_id));
    }
    ExpectSameRecord(index.FindById(12345), CFile::Root());
    ExpectSameRecord(index.FindById(kNoEntryId), CFile::Root());
}

TEST_F(CompactIndexTest, AFailedBuildLeavesAnEmptyIndexWithTheStatus)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(BuildStorageIndex(index, dir / "missing"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(index.m_errorCode, -1);
    EXPECT_EQ(index.GetErrorText(), "E: While opendir " + (dir / "missing"));
    EXPECT_TRUE(index.Empty());
    EXPECT_TRUE(index.ChildrenOf(dir.Path()).empty());
    EXPECT_EQ(StorageIndexCrc32(index), 0u);
}

TEST_F(CompactIndexTest, ClearEmptiesTheIndexAndTheMap)
{
    index.Clear();
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(index.RootPath(), "");
    EXPECT_TRUE(index.ChildrenOf(dir.Path()).empty());
    EXPECT_EQ(StorageIndexCrc32(index), 0u);
    EXPECT_TRUE(BuildStorageIndex(index, dir.Path()));
    ExpectSameRecords(index.Records(), scanned.m_files);
}

TEST(CompactIndexEmptyTest, AFreshIndexIsEmpty)
{
    const CStorageIndex index;
    EXPECT_TRUE(index.Empty());
    EXPECT_TRUE(index.ChildrenOf("/mnt/usb-stick1").empty());
    EXPECT_EQ(StorageIndexCrc32(index), 0u);
    ExpectSameRecord(index.FindById(1), CFile::Root());
}
