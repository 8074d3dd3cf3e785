// The storage index and its CRC-32 over the record ids.
#include "library/StorageIndex.h"

#include "library/FileId.h"
#include "library/FileList.h"
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

// The zlib CRC-32 of `ids`, each written as its 4 little-endian bytes, one
// after the other: what StorageIndexCrc32 must give for an index with these
// ids.
uint32_t LittleEndianCrc(const std::vector<uint32_t>& ids)
{
    std::vector<unsigned char> bytes;
    for (const uint32_t id : ids) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<unsigned char>(id >> shift));
        }
    }
    return static_cast<uint32_t>(crc32(crc32(0L, Z_NULL, 0), bytes.data(), static_cast<uInt>(bytes.size())));
}

uint32_t Crc(const CStorageIndex& index)
{
    return StorageIndexCrc32(index);
}

// Builds `index` from the missing folder <dir>/missing: the build fails and
// leaves an empty index, its checksum 0, with the status of the failed open.
void ExpectFailedBuildOnMissingFolder(CStorageIndex& index, const TempDir& dir)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(BuildStorageIndex(index, dir / "missing"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(index.m_errorCode, -1);
    EXPECT_EQ(index.GetErrorText(), "E: While opendir " + (dir / "missing"));
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(Crc(index), 0u);
}

}  // namespace

TEST(StorageIndexTest, EmptyIndexGivesZero)
{
    EXPECT_EQ(Crc(CStorageIndex()), 0u);
    EXPECT_EQ(LittleEndianCrc({}), 0u);
}

TEST(StorageIndexTest, IdsEnterAsFourLittleEndianBytesInListOrder)
{
    EXPECT_EQ(LittleEndianCrc({2631719416u}), 888846999u);
    EXPECT_EQ(LittleEndianCrc({2631719416u, 3990065800u}), 2754181654u);
    EXPECT_NE(LittleEndianCrc({3990065800u, 2631719416u}), 2754181654u);

    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CStorageIndex index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    EXPECT_EQ(Crc(index), LittleEndianCrc(index.Ids()));
    EXPECT_NE(Crc(index), LittleEndianCrc(std::vector<uint32_t>(index.Ids().rbegin(), index.Ids().rend())));
}

TEST(StorageIndexTest, OnlyIdsCount)
{
    // An id hashes the folder path and the name joined with no separator, so
    // "ab.mp3" in <dir>/s and "b.mp3" in <dir>/sa share one.
    TempDir dir;
    WriteFile(dir / "s/ab.mp3", "abc");
    WriteFile(dir / "sa/b.mp3", "abc");
    CStorageIndex a;
    CStorageIndex b;
    ASSERT_TRUE(BuildStorageIndex(a, dir / "s"));
    ASSERT_TRUE(BuildStorageIndex(b, dir / "sa"));
    ASSERT_EQ(a.Ids(), b.Ids());
    ASSERT_NE(a.At(0).m_name, b.At(0).m_name);
    ASSERT_NE(a.At(0).m_path, b.At(0).m_path);
    EXPECT_EQ(Crc(a), Crc(b));
}

TEST(StorageIndexTest, BuildListsEveryFolderAndFileSorted)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CStorageIndex index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    EXPECT_EQ(index.Size(), 11u);  // 4 folders, 7 files
    EXPECT_EQ(index.RootPath(), dir.Path());
    EXPECT_EQ(Crc(index), LittleEndianCrc(index.Ids()));
    EXPECT_EQ(index.At(0).m_id, FileId(dir.Path(), "Jazz"));
}

TEST(StorageIndexTest, TwoBuildsOfTheSameTreeGiveTheSameChecksum)
{
    TempDir dir;
    WriteTree(dir.Path(), kTree);
    CStorageIndex index;
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
    CStorageIndex index;
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
    CStorageIndex index;
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
    CStorageIndex index;
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path()));
    ExpectFailedBuildOnMissingFolder(index, dir);
}

TEST(StorageIndexTest, BuildOnATreeWithoutMediaFails)
{
    TempDir dir;
    WriteFile(dir / "Docs/readme.txt", "x");
    CStorageIndex index;
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

// The plain sorted scan the index is held against: every folder and audio
// file below `path`.
bool ScanStick(CFileList& list, const std::string& path)
{
    return list.Scan(path, "", true, true, false, 0);
}

std::vector<uint32_t> IdsOf(const CFileList& list)
{
    std::vector<uint32_t> ids;
    for (const CFile& file : list.m_files) {
        ids.push_back(file.m_id);
    }
    return ids;
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
        ASSERT_TRUE(ScanStick(scanned, dir.Path()));
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
    EXPECT_EQ(index.Ids(), IdsOf(scanned));
    EXPECT_EQ(StorageIndexCrc32(index), LittleEndianCrc(IdsOf(scanned)));
    EXPECT_NE(StorageIndexCrc32(index), 0u);
}

TEST_F(CompactIndexTest, AStartingPathWithTrailingSlashesKeepsTheScanRecords)
{
    ASSERT_TRUE(ScanStick(scanned, dir.Path() + "//"));
    ASSERT_TRUE(BuildStorageIndex(index, dir.Path() + "//"));
    ExpectSameRecords(index.Records(), scanned.m_files);
    EXPECT_EQ(index.Ids(), IdsOf(scanned));
    EXPECT_EQ(StorageIndexCrc32(index), LittleEndianCrc(IdsOf(scanned)));
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

TEST_F(CompactIndexTest, FolderGroupsListWhatTheSortedFullWalkFinds)
{
    CFolderGroups fromIndex;
    for (const std::string& folder : {dir.Path(), dir / "Rock", dir / "Artist 3/CD2", dir / "Docs", dir / "x"}) {
        SCOPED_TRACE(folder);
        CFileList expected;
        expected.m_files = ScannedChildren(scanned, folder);
        expected.Sort();
        ExpectSameRecords(fromIndex.ListFolder(index, folder).m_files, expected.m_files);
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
    ExpectFailedBuildOnMissingFolder(index, dir);
    EXPECT_TRUE(index.ChildrenOf(dir.Path()).empty());
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

// An index built aside is put in place by a swap: records, folder map, path
// and status all change sides.
TEST_F(CompactIndexTest, SwapExchangesRecordsMapPathAndStatus)
{
    const uint32_t crc = StorageIndexCrc32(index);
    CStorageIndex failed;
    ExpectFailedBuildOnMissingFolder(failed, dir);

    index.Swap(failed);
    EXPECT_TRUE(index.Empty());
    EXPECT_EQ(index.RootPath(), dir / "missing");
    EXPECT_EQ(index.m_errorCode, -1);
    EXPECT_EQ(index.GetErrorText(), "E: While opendir " + (dir / "missing"));
    EXPECT_TRUE(index.ChildrenOf(dir.Path()).empty());

    EXPECT_EQ(failed.m_errorCode, 0);
    EXPECT_EQ(failed.RootPath(), dir.Path());
    EXPECT_EQ(StorageIndexCrc32(failed), crc);
    ExpectSameRecords(failed.Records(), scanned.m_files);
    ExpectSameRecords(Children(failed, dir / "Rock"), ScannedChildren(scanned, dir / "Rock"));
}

TEST(CompactIndexEmptyTest, AFreshIndexIsEmpty)
{
    const CStorageIndex index;
    EXPECT_TRUE(index.Empty());
    EXPECT_TRUE(index.ChildrenOf("/mnt/usb-stick1").empty());
    EXPECT_EQ(StorageIndexCrc32(index), 0u);
    ExpectSameRecord(index.FindById(1), CFile::Root());
}
