// The folder of the sticks' tag databases: one file per stick identity,
// named safely whatever the identity holds, and only the sticks used most
// recently kept, each database with its WAL files.
#include "library/TagDatabaseFolder.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <set>
#include <string>

using testing_support::FolderNames;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

// Sets the modification time of `path` to `seconds` past a fixed time, so
// the order of use is set by the test, not by the clock's resolution.
void SetModified(const std::string& path, time_t seconds)
{
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

std::string Database(int stick)
{
    return "tags-crc-" + std::to_string(stick) + ".sqlite";
}

class TagDatabaseFolderTest : public testing::Test {
protected:
    std::string Folder() const { return m_dir / "state"; }

    // A database for each stick of [first, last], the later ones used more
    // recently, each with its WAL files.
    void MakeDatabases(int first, int last, time_t base)
    {
        for (int stick = first; stick <= last; ++stick) {
            for (const char* suffix : {"", "-wal", "-shm"}) {
                const std::string path = Folder() + "/" + Database(stick) + suffix;
                WriteFile(path, "db");
                ASSERT_NO_FATAL_FAILURE(SetModified(path, base + stick));
            }
        }
    }

    TempDir m_dir;
};

}  // namespace

TEST(TagDatabaseFileNameTest, APlainIdentityNamesTheFile)
{
    EXPECT_EQ(CTagDatabaseFolder::FileNameOf("uuid-2C4A-11F0"), "tags-uuid-2C4A-11F0.sqlite");
    EXPECT_EQ(CTagDatabaseFolder::FileNameOf("crc-3735928559"), "tags-crc-3735928559.sqlite");
    const std::string longest(64, 'a');
    EXPECT_EQ(CTagDatabaseFolder::FileNameOf(longest), "tags-" + longest + ".sqlite");
}

TEST(TagDatabaseFileNameTest, ALongOrOddIdentityIsNamedByItsHash)
{
    const std::string odd[] = {std::string(65, 'a'), "uuid-../../etc/passwd", "..", "uuid-a/b", "uuid-a b",
                               "uuid-\xc3\xa9t\xc3\xa9", "uuid-x.y", std::string("uuid-\0x", 7), ""};
    std::set<std::string> names;
    for (const std::string& identity : odd) {
        const std::string name = CTagDatabaseFolder::FileNameOf(identity);
        EXPECT_EQ(name.rfind("tags-id-", 0), 0u) << name;
        EXPECT_EQ(name.size(), std::string("tags-id-01234567.sqlite").size()) << name;
        EXPECT_EQ(name.find('/'), std::string::npos) << name;
        EXPECT_EQ(name.find(".."), std::string::npos) << name;
        EXPECT_EQ(name.find('\0'), std::string::npos) << name;
        EXPECT_EQ(CTagDatabaseFolder::FileNameOf(identity), name) << "the same identity, the same file";
        names.insert(name);
    }
    EXPECT_EQ(names.size(), std::size(odd)) << "distinct identities share a file";
}

TEST_F(TagDatabaseFolderTest, PathOfMakesTheFolderWithItsParents)
{
    const std::string folder = m_dir / "var/lib/usbmedia/tags";
    const CTagDatabaseFolder databases(folder);
    EXPECT_EQ(databases.PathOf("uuid-1234"), folder + "/tags-uuid-1234.sqlite");
    struct stat info {};
    ASSERT_EQ(stat(folder.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0700u) << "the databases tell what a stick holds: the owner's alone";
    ASSERT_EQ(stat((m_dir / "var/lib").c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    // A second call finds it there.
    EXPECT_EQ(databases.PathOf("uuid-1234"), folder + "/tags-uuid-1234.sqlite");
}

TEST_F(TagDatabaseFolderTest, PathOfIsEmptyWhenTheFolderCannotBeMade)
{
    WriteFile(m_dir / "file", "not a folder");
    const CTagDatabaseFolder databases(m_dir / "file/tags");
    EXPECT_EQ(databases.PathOf("uuid-1234"), "");
}

TEST_F(TagDatabaseFolderTest, TheEightMostRecentlyUsedStay)
{
    const time_t base = 1600000000;
    ASSERT_NO_FATAL_FAILURE(MakeDatabases(1, 10, base));
    const CTagDatabaseFolder databases(Folder());
    // Stick 10 is used again: 3 to 10 are the eight most recent.
    databases.MarkUsed(Folder() + "/" + Database(10));
    std::set<std::string> expected;
    for (int stick = 3; stick <= 10; ++stick) {
        for (const char* suffix : {"", "-wal", "-shm"}) {
            expected.insert(Database(stick) + suffix);
        }
    }
    EXPECT_EQ(FolderNames(Folder()), expected);
}

TEST_F(TagDatabaseFolderTest, TheOneJustUsedStaysAndBecomesTheNewest)
{
    const time_t base = 1600000000;
    ASSERT_NO_FATAL_FAILURE(MakeDatabases(1, 10, base));
    const CTagDatabaseFolder databases(Folder());
    // The oldest is used: it and the seven newest of the others stay.
    databases.MarkUsed(Folder() + "/" + Database(1));
    std::set<std::string> expected;
    for (int stick : {1, 4, 5, 6, 7, 8, 9, 10}) {
        for (const char* suffix : {"", "-wal", "-shm"}) {
            expected.insert(Database(stick) + suffix);
        }
    }
    EXPECT_EQ(FolderNames(Folder()), expected);
}

TEST_F(TagDatabaseFolderTest, TheOneJustUsedStaysEvenWithNewerOnesAround)
{
    // Times in the future (a clock set back since): the one marked now is
    // still older than all the others, and must not be the one dropped.
    const time_t future = time(nullptr) + 100000;
    ASSERT_NO_FATAL_FAILURE(MakeDatabases(1, 9, future));
    const std::string used = Folder() + "/tags-uuid-now.sqlite";
    WriteFile(used, "db");
    const CTagDatabaseFolder databases(Folder());
    databases.MarkUsed(used);
    const std::set<std::string> names = FolderNames(Folder());
    EXPECT_EQ(names.count("tags-uuid-now.sqlite"), 1u);
    EXPECT_EQ(names.count(Database(1)), 0u);
    EXPECT_EQ(names.count(Database(2)), 0u);
    EXPECT_EQ(names.count(Database(3)), 1u);
    EXPECT_EQ(names.count(Database(9)), 1u);
    size_t databasesLeft = 0;
    for (const std::string& name : names) {
        databasesLeft += name.size() > 7 && name.compare(name.size() - 7, 7, ".sqlite") == 0 ? 1 : 0;
    }
    EXPECT_EQ(databasesLeft, CTagDatabaseFolder::kKeptSticks);
}

TEST_F(TagDatabaseFolderTest, EightOrFewerAreAllKept)
{
    ASSERT_NO_FATAL_FAILURE(MakeDatabases(1, 8, 1600000000));
    const CTagDatabaseFolder databases(Folder());
    databases.MarkUsed(Folder() + "/" + Database(1));
    EXPECT_EQ(FolderNames(Folder()).size(), 8u * 3);
}

TEST_F(TagDatabaseFolderTest, FilesOfOtherNamesAreLeftAlone)
{
    const time_t base = 1600000000;
    ASSERT_NO_FATAL_FAILURE(MakeDatabases(1, 9, base));
    const std::string others[] = {"notes.txt", "tags-.sqlite", "tags-old.db", "other.sqlite", "tags-x.sqlite.bak",
                                  "art"};
    for (const std::string& name : others) {
        WriteFile(Folder() + "/" + name, "keep");
        ASSERT_NO_FATAL_FAILURE(SetModified(Folder() + "/" + name, base - 1000));
    }
    // A folder of a database's name is no database either.
    ASSERT_EQ(mkdir((Folder() + "/tags-folder.sqlite").c_str(), 0700), 0);
    ASSERT_NO_FATAL_FAILURE(SetModified(Folder() + "/tags-folder.sqlite", base - 1000));
    const CTagDatabaseFolder databases(Folder());
    databases.MarkUsed(Folder() + "/" + Database(9));
    const std::set<std::string> names = FolderNames(Folder());
    for (const std::string& name : others) {
        EXPECT_EQ(names.count(name), 1u) << name;
    }
    EXPECT_EQ(names.count("tags-folder.sqlite"), 1u);
    EXPECT_EQ(names.count(Database(1)), 0u) << "nine databases: the oldest goes";
    EXPECT_EQ(names.count(Database(1) + "-wal"), 0u);
    EXPECT_EQ(names.count(Database(2)), 1u);
}
