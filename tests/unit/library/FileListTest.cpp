// The directory scanner on real trees: which entries count as audio, hidden
// names, links, the recursive and probing modes, search, sorting, failures.
#include "library/FileList.h"

#include "library/FileId.h"
#include "tests/support/TempDir.h"
#include "tests/unit/library/ScanFixture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

using library_test::Describe;
using testing_support::MakeDirs;
using testing_support::WriteFile;

namespace {

class FileListTest : public library_test::ScanTest {};

}  // namespace

TEST_F(FileListTest, AcceptsTheThreeExtensionsInAnyCase)
{
    for (const char* name : {"a.MP3", "B.Wav", "x.mp3", "c.WMA", "1.wav", ".mp3", ".hidden.mp3", "song.mp3.txt",
                             "song.flac", "abc", "a.mp", "mp3", "song.ogg"}) {
        Touch(name);
    }
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()),
              (std::vector<std::string>{"F . 1.wav", "F . B.Wav", "F . a.MP3", "F . c.WMA", "F . x.mp3"}));
}

TEST_F(FileListTest, RecordsCarryTheFolderPathAndTheJoinedHash)
{
    Touch("Music/Song.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    ASSERT_EQ(list.Size(), 2u);
    const CFile& folder = list.m_files[0];
    const CFile& song = list.m_files[1];
    EXPECT_TRUE(folder.m_isFolder);
    EXPECT_EQ(folder.m_name, "Music");
    EXPECT_EQ(folder.m_path, Root());
    EXPECT_EQ(folder.m_id, FileId(Root(), "Music"));
    EXPECT_FALSE(song.m_isFolder);
    EXPECT_EQ(song.m_name, "Song.mp3");
    EXPECT_EQ(song.m_path, Root() + "/Music");
    EXPECT_EQ(song.m_id, FileId(Root() + "/Music", "Song.mp3"));
    EXPECT_EQ(list.m_rootPath, Root());
}

TEST_F(FileListTest, RootGivenWithTrailingSlashHashesWithIt)
{
    Touch("Music/Song.mp3");
    ASSERT_TRUE(list.Scan(Root() + "/", "", true, true, false));
    ASSERT_EQ(list.Size(), 2u);
    EXPECT_EQ(list.m_files[0].m_path, Root());
    EXPECT_EQ(list.m_files[0].m_id, FileId(Root() + "/", "Music"));
    // The child path gets no second separator.
    EXPECT_EQ(list.m_files[1].m_path, Root() + "/Music");
    EXPECT_EQ(list.m_rootPath, Root() + "/");
}

TEST_F(FileListTest, HiddenFoldersAreNeverEntered)
{
    Touch(".music/a.mp3");
    Touch("Visible/.hidden.mp3");
    Touch("Visible/.Sub/b.mp3");
    EXPECT_FALSE(list.Scan(Root(), "", true, true, false));
    EXPECT_TRUE(list.Empty());
    EXPECT_EQ(list.m_errorCode, 0);
}

TEST_F(FileListTest, FoldersWithoutAudioAreNotListed)
{
    Touch("Docs/readme.txt");
    Touch("Docs/cover.jpg");
    Touch("OnlyHidden/.a.mp3");
    Touch("Empty/.keep");
    Touch("Songs/a.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Songs", "F ./Songs a.mp3"}));

    ASSERT_TRUE(list.Scan(Root(), "", false, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Songs"}));
}

TEST_F(FileListTest, SymbolicLinksAreSkipped)
{
    Touch("Real/a.mp3");
    ASSERT_EQ(symlink((Root() + "/Real/a.mp3").c_str(), (Root() + "/link.mp3").c_str()), 0);
    ASSERT_EQ(symlink((Root() + "/Real").c_str(), (Root() + "/LinkedFolder").c_str()), 0);
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Real", "F ./Real a.mp3"}));
}

TEST_F(FileListTest, RecursiveWithFoldersListsEveryLevel)
{
    Touch("A/B/C/deep.mp3");
    Touch("A/top.wav");
    Touch("Z/x.wma");
    Touch("root.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()),
              (std::vector<std::string>{"D . A", "D ./A B", "D ./A/B C", "D . Z", "F ./A/B/C deep.mp3", "F . root.mp3",
                                        "F ./A top.wav", "F ./Z x.wma"}));
}

TEST_F(FileListTest, RecursiveWithoutFoldersListsOnlyFiles)
{
    Touch("A/B/deep.mp3");
    Touch("A/top.wav");
    ASSERT_TRUE(list.Scan(Root(), "", true, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"F ./A/B deep.mp3", "F ./A top.wav"}));
}

TEST_F(FileListTest, RecursiveWithoutFoldersAndNoAudioFails)
{
    Touch("A/readme.txt");
    EXPECT_FALSE(list.Scan(Root(), "", true, false, false));
    EXPECT_TRUE(list.Empty());
}

TEST_F(FileListTest, NonRecursiveProbeListsSubfoldersHoldingAudioAtAnyDepth)
{
    Touch("here.mp3");
    Touch("Direct/a.mp3");
    Touch("Nested/Inner/Deeper/b.mp3");
    Touch("Nested/readme.txt");
    Touch("NoAudio/Inner/c.txt");
    ASSERT_TRUE(list.Scan(Root(), "", false, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Direct", "D . Nested", "F . here.mp3"}));
}

TEST_F(FileListTest, NonRecursiveWithFoldersReportsWhatItFound)
{
    Touch("Direct/a.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", false, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Direct"}));
}

TEST_F(FileListTest, NonRecursiveWithNothingFails)
{
    Touch("a.txt");
    MakeDirs(Root() + "/Empty");
    EXPECT_FALSE(list.Scan(Root(), "", false, false, false));
    EXPECT_TRUE(list.Empty());
}

TEST_F(FileListTest, SearchIsCaseBlindAndMatchesFilesOnly)
{
    Touch("Love me.mp3");
    Touch("Other.mp3");
    Touch("LOVE/unrelated.mp3");
    Touch("Mix/glove.wav");
    ASSERT_TRUE(list.Scan(Root(), "LOVE", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Mix", "F . Love me.mp3", "F ./Mix glove.wav"}));
}

TEST_F(FileListTest, SearchWithNoMatchFails)
{
    Touch("a.mp3");
    EXPECT_FALSE(list.Scan(Root(), "zzz", true, true, false));
    EXPECT_TRUE(list.Empty());
}

TEST_F(FileListTest, SortPutsFoldersFirstThenByteOrder)
{
    Touch("alpha.mp3");
    Touch("Zed.mp3");
    Touch("beta/a.mp3");
    Touch("Alpha/a.mp3");
    Touch("_x.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", false, false, false));
    EXPECT_EQ(Describe(list, Root()),
              (std::vector<std::string>{"D . Alpha", "D . beta", "F . Zed.mp3", "F . _x.mp3", "F . alpha.mp3"}));
}

TEST_F(FileListTest, SortOfAHandMadeList)
{
    list.m_files = {CFile(1, "b.mp3", "/p", false), CFile(2, "Z", "/p", true), CFile(3, "A.mp3", "/p", false),
                    CFile(4, "a", "/p", true), CFile(5, "\xe9.mp3", "/p", false)};
    list.Sort();
    std::vector<uint32_t> ids;
    for (const CFile& file : list.m_files) {
        ids.push_back(file.m_id);
    }
    EXPECT_EQ(ids, (std::vector<uint32_t>{2, 4, 3, 1, 5}));
}

TEST_F(FileListTest, Latin1NamesAreKeptAsBytes)
{
    Touch("Caf\xe9.mp3");
    Touch("\xc9t\xe9/Chanson.MP3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()),
              (std::vector<std::string>{"D . \xc9t\xe9", "F . Caf\xe9.mp3", "F ./\xc9t\xe9 Chanson.MP3"}));
    EXPECT_EQ(list.m_files[1].m_id, FileId(Root(), "Caf\xe9.mp3"));
}

TEST_F(FileListTest, RootThatCannotBeOpenedSetsTheStatus)
{
    list.m_files.push_back(CFile(1, "old.mp3", "/p", false));
    const std::string missing = Root() + "/does-not-exist";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(list.Scan(missing, "", true, true, false));
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(errors, "dp == NULL && 0 == dirLevel\n");
    EXPECT_EQ(list.m_errorCode, -1);
    EXPECT_EQ(list.GetErrorText(), "E: While opendir " + missing);
    EXPECT_TRUE(list.Empty());
    EXPECT_EQ(list.m_rootPath, missing);
}

TEST_F(FileListTest, AFileAsRootCannotBeOpened)
{
    Touch("a.mp3");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(list.Scan(Root() + "/a.mp3", "", true, true, false));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(list.m_errorCode, -1);
}

TEST_F(FileListTest, ANewScanClearsTheStatusAndTheOldRecords)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(list.Scan(Root() + "/missing", "", true, true, false));
    testing::internal::GetCapturedStderr();
    Touch("a.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, true));
    EXPECT_EQ(list.m_errorCode, 0);
    EXPECT_EQ(list.GetErrorText(), "Success");
    EXPECT_EQ(list.Size(), 1u);
    EXPECT_TRUE(list.m_flag);
}

TEST_F(FileListTest, ClearForgetsEverything)
{
    Touch("a.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    list.SetError("x", -3);
    list.Clear();
    EXPECT_TRUE(list.Empty());
    EXPECT_EQ(list.m_rootPath, "");
    EXPECT_EQ(list.m_errorCode, 0);
}

TEST_F(FileListTest, FindByIdReturnsTheFirstMatchOrTheRoot)
{
    list.m_files = {CFile(10, "a.mp3", "/p", false), CFile(20, "B", "/p", true), CFile(20, "second", "/q", true)};
    EXPECT_EQ(list.FindById(20).m_name, "B");
    EXPECT_EQ(list.FindById(10).m_path, "/p");
    const CFile missing = list.FindById(30);
    EXPECT_EQ(missing.m_id, kNoEntryId);
    EXPECT_EQ(missing.m_name, "");
    EXPECT_TRUE(missing.m_isFolder);
    EXPECT_EQ(CFileList().FindById(kNoEntryId).m_id, kNoEntryId);
}

TEST_F(FileListTest, PathAndNameJoinedWithoutSeparatorCanCollide)
{
    Touch("a/bc.mp3");
    Touch("ab/c.mp3");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    ASSERT_EQ(Describe(list, Root()),
              (std::vector<std::string>{"D . a", "D . ab", "F ./a bc.mp3", "F ./ab c.mp3"}));
    EXPECT_EQ(list.m_files[2].m_id, list.m_files[3].m_id);
    // A lookup finds the first of the two.
    EXPECT_EQ(list.FindById(list.m_files[3].m_id).m_name, "bc.mp3");
}

TEST_F(FileListTest, FourAndFiveByteNames)
{
    Touch(".wav");
    Touch("a.wa");
    Touch("b.wav");
    Touch("C.WMA");
    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"F . C.WMA", "F . b.wav"}));
}
