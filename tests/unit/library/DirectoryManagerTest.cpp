// One open folder read straight from the kernel: every entry, however many
// reads a large folder takes, and its identity.
#include "library/DirectoryManager.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>

using testing_support::TempDir;

TEST(DirectoryManagerTest, AFolderLargerThanOneReadIsReadWhole)
{
    const TempDir dir;
    std::set<std::string> written;
    for (int i = 0; i < 1500; ++i) {  // about 100 KB of entries: several reads
        char name[80];
        std::snprintf(name, sizeof name, "a rather long file name to fill the buffer, number %04d.mp3", i);
        testing_support::WriteFile(dir / name, "x");
        written.insert(name);
    }
    CDirectoryManager folder(dir.Path());
    ASSERT_TRUE(folder.IsOpen());
    std::set<std::string> read;
    errno = 0;
    while (const dirent64* entry = folder.ReadEntry()) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            EXPECT_EQ(entry->d_type, DT_REG) << name;
            EXPECT_TRUE(read.insert(name).second) << name << " read twice";
        }
    }
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(read, written);
    EXPECT_EQ(folder.ReadEntry(), nullptr);  // still at the end
}

TEST(DirectoryManagerTest, AClosedOrMissingFolderReadsNothing)
{
    const TempDir dir;
    CDirectoryManager missing(dir / "missing");
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(missing.ReadEntry(), nullptr);
    SDirectoryIdentity identity;
    EXPECT_FALSE(missing.Identity(identity));

    CDirectoryManager folder(dir.Path());
    ASSERT_TRUE(folder.Identity(identity));
    folder.Close();
    EXPECT_FALSE(folder.IsOpen());
    EXPECT_EQ(folder.ReadEntry(), nullptr);
}
