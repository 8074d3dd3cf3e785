// A folder chain 10,000 levels deep: the scanner walks it on its own stack,
// with a bounded number of open directories, and ignores the levels whose
// paths the system cannot open.
#include "library/FileList.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kDepth = 10000;
constexpr int kShallowSong = 100;   // level of a song well within PATH_MAX
constexpr int kReachableSong = 1500;  // still openable: the path stays below PATH_MAX

void WriteSongAt(int dirFd, const char* name)
{
    const int fd = openat(dirFd, name, O_CREAT | O_WRONLY | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "abc", 3), 3);
    close(fd);
}

// root/d/d/.../d (kDepth levels) with songs at a few levels, built with
// relative steps because the full path is far longer than PATH_MAX.
void BuildChain(const std::string& root)
{
    int fd = open(root.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    for (int level = 1; level <= kDepth; ++level) {
        ASSERT_EQ(mkdirat(fd, "d", 0755), 0) << level;
        const int child = openat(fd, "d", O_RDONLY | O_DIRECTORY);
        ASSERT_GE(child, 0) << level;
        close(fd);
        fd = child;
        if (level == kShallowSong || level == kReachableSong || level == kDepth) {
            WriteSongAt(fd, "song.mp3");
        }
    }
    close(fd);
}

// Removes the chain bottom-up, walking the working directory down and up
// again, so neither long paths nor one handle per level are needed.
void RemoveChain(const std::string& root)
{
    const int saved = open(".", O_RDONLY | O_DIRECTORY);
    if (saved < 0 || chdir(root.c_str()) != 0) {
        return;
    }
    int depth = 0;
    while (chdir("d") == 0) {
        ++depth;
    }
    for (; depth > 0; --depth) {
        unlink("song.mp3");
        if (chdir("..") != 0) {
            break;
        }
        rmdir("d");
    }
    if (fchdir(saved) != 0) {
        ADD_FAILURE() << "cannot return to the working directory";
    }
    close(saved);
}

// A fresh directory for the chain, in memory (/dev/shm) where available:
// ten thousand folders made and removed cost no disk traffic there.
class CChainDir {
public:
    CChainDir()
    {
        const char* tmp = std::getenv("TMPDIR");
        const std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : (tmp != nullptr ? tmp : "/tmp");
        std::string pattern = base + "/usbmedia-deep-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) {
            m_path = pattern;
        }
    }
    ~CChainDir()
    {
        if (!m_path.empty()) {
            RemoveChain(m_path);
            rmdir(m_path.c_str());
        }
    }
    CChainDir(const CChainDir&) = delete;
    CChainDir& operator=(const CChainDir&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

class DeepTreeTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir = std::make_unique<CChainDir>();
        ASSERT_FALSE(dir->Path().empty());
        BuildChain(dir->Path());
    }
    static void TearDownTestSuite()
    {
        dir.reset();
    }

    // The scan runs under a low open-file limit, so it must not keep one
    // directory handle per level.
    static bool ScanWithFewHandles(CFileList& list, bool recursive, bool withFolders)
    {
        rlimit saved{};
        getrlimit(RLIMIT_NOFILE, &saved);
        rlimit low = saved;
        low.rlim_cur = 200;
        setrlimit(RLIMIT_NOFILE, &low);
        const bool found = list.Scan(dir->Path(), "", recursive, withFolders, false);
        setrlimit(RLIMIT_NOFILE, &saved);
        return found;
    }

    static std::string ChainPath(int levels)
    {
        std::string path = dir->Path();
        for (int i = 0; i < levels; ++i) {
            path += "/d";
        }
        return path;
    }

    static std::unique_ptr<CChainDir> dir;
};

std::unique_ptr<CChainDir> DeepTreeTest::dir;

}  // namespace

// One test for all modes: building the chain is the costly part, and every
// test runs in a process of its own under ctest.
TEST_F(DeepTreeTest, ScansTenThousandLevelsOnItsOwnStack)
{
    ASSERT_LT(ChainPath(kReachableSong).size() + 10, static_cast<size_t>(PATH_MAX));
    ASSERT_GT(ChainPath(kDepth).size(), static_cast<size_t>(PATH_MAX));

    // Recursive with folders: one folder record per level down to the
    // deepest reachable song, then the two reachable songs (equal names:
    // the sort decides their order).
    CFileList list;
    ASSERT_TRUE(ScanWithFewHandles(list, true, true));
    EXPECT_EQ(list.m_errorCode, 0);
    ASSERT_EQ(list.Size(), static_cast<size_t>(kReachableSong + 2));
    for (int i = 0; i < kReachableSong; ++i) {
        ASSERT_TRUE(list.m_files[i].m_isFolder) << i;
        ASSERT_EQ(list.m_files[i].m_name, "d") << i;
    }
    std::vector<std::string> songPaths;
    for (size_t i = kReachableSong; i < list.Size(); ++i) {
        EXPECT_FALSE(list.m_files[i].m_isFolder);
        EXPECT_EQ(list.m_files[i].m_name, "song.mp3");
        songPaths.push_back(list.m_files[i].m_path);
    }
    EXPECT_TRUE((songPaths == std::vector<std::string>{ChainPath(kShallowSong), ChainPath(kReachableSong)}) ||
                (songPaths == std::vector<std::string>{ChainPath(kReachableSong), ChainPath(kShallowSong)}));

    // Recursive without folders, as for a folder's playlist.
    ASSERT_TRUE(ScanWithFewHandles(list, true, false));
    EXPECT_EQ(list.Size(), 2u);

    // The non-recursive probe descends until it meets audio.
    ASSERT_TRUE(ScanWithFewHandles(list, false, false));
    ASSERT_EQ(list.Size(), 1u);
    EXPECT_TRUE(list.m_files[0].m_isFolder);
    EXPECT_EQ(list.m_files[0].m_name, "d");
    EXPECT_EQ(list.m_files[0].m_path, dir->Path());

    // A search that matches nothing walks the whole chain and fails quietly.
    EXPECT_FALSE(list.Scan(dir->Path(), "nothing", true, true, false));
    EXPECT_TRUE(list.Empty());
    EXPECT_EQ(list.m_errorCode, 0);
}
