// The scanner on entries that are neither folders nor regular files, and on
// trees that lead back into themselves: FIFOs, sockets, dangling links and
// entries of unknown type are skipped; link loops are never followed and a
// bind mount loop is not entered a second time.
#include "library/FileList.h"

#include "tests/support/TempDir.h"
#include "tests/unit/library/ScanFixture.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using library_test::Describe;
using testing_support::MakeDirs;
using testing_support::WriteFile;

namespace {

// A listening Unix socket at `path`; the entry stays after the close.
bool MakeSocket(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool made = fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (fd >= 0) {
        close(fd);
    }
    return made;
}

// Detaches a mount when the test ends, before its directory is removed.
struct SMountGuard {
    std::string target;
    ~SMountGuard() { umount2(target.c_str(), MNT_DETACH); }
};

int Shell(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str());
}

class ScannerEntriesTest : public library_test::ScanTest {};

}  // namespace

TEST_F(ScannerEntriesTest, FifosSocketsAndDanglingLinksAreSkipped)
{
    Touch("Songs/real.mp3");
    MakeDirs(Root() + "/Specials");
    ASSERT_EQ(mkfifo((Root() + "/Songs/fifo.mp3").c_str(), 0644), 0);
    ASSERT_EQ(mkfifo((Root() + "/Specials/fifo.wav").c_str(), 0644), 0);
    ASSERT_TRUE(MakeSocket(Root() + "/Songs/sock.mp3"));
    ASSERT_TRUE(MakeSocket(Root() + "/Specials/sock.wma"));
    ASSERT_EQ(symlink((Root() + "/gone.mp3").c_str(), (Root() + "/Songs/dangling.mp3").c_str()), 0);
    ASSERT_EQ(symlink((Root() + "/gone").c_str(), (Root() + "/Specials/DanglingFolder").c_str()), 0);

    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Songs", "F ./Songs real.mp3"}));
    // Probing: a folder of such entries holds no audio.
    ASSERT_TRUE(list.Scan(Root(), "", false, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Songs"}));
    EXPECT_FALSE(list.Scan(Root() + "/Specials", "", true, false, false));
    EXPECT_EQ(list.m_errorCode, 0);
}

// ext2 without its "filetype" feature stores no entry types, so readdir
// reports DT_UNKNOWN for every entry (as on some FAT, network and FUSE file
// systems). Such entries are skipped like links: nothing is listed, not even
// what a stat would show to be a folder or a song. Making that file system
// needs mkfs.ext2 and a loop mount; without them the test is skipped.
TEST_F(ScannerEntriesTest, EntriesOfUnknownTypeAreSkipped)
{
    const std::string source = Root() + "/source";
    const std::string image = Root() + "/image";
    const std::string mountPoint = Root() + "/mounted";
    WriteFile(source + "/a.mp3", "abc");
    WriteFile(source + "/Sub/b.mp3", "abc");
    MakeDirs(mountPoint);
    if (Shell("mkfs.ext2 -q -F -O ^filetype -d '" + source + "' '" + image + "' 1M") != 0) {
        GTEST_SKIP() << "mkfs.ext2 cannot make a file system without entry types here";
    }
    if (Shell("mount -o loop,ro '" + image + "' '" + mountPoint + "'") != 0) {
        GTEST_SKIP() << "cannot loop-mount a file system image here (needs root and loop devices)";
    }
    const SMountGuard guard{mountPoint};
    struct stat status {};
    ASSERT_EQ(stat((mountPoint + "/Sub/b.mp3").c_str(), &status), 0);

    EXPECT_FALSE(list.Scan(mountPoint, "", true, true, false));
    EXPECT_TRUE(list.m_files.empty());
    EXPECT_EQ(list.m_errorCode, 0);
}

TEST_F(ScannerEntriesTest, LinkLoopsAreNeverFollowed)
{
    Touch("Real/a.mp3");
    ASSERT_EQ(symlink("..", (Root() + "/Real/up").c_str()), 0);
    ASSERT_EQ(symlink(".", (Root() + "/Real/self").c_str()), 0);
    ASSERT_EQ(symlink((Root() + "/Real/ping").c_str(), (Root() + "/Real/pong").c_str()), 0);
    ASSERT_EQ(symlink((Root() + "/Real/pong").c_str(), (Root() + "/Real/ping").c_str()), 0);

    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Real", "F ./Real a.mp3"}));
    ASSERT_TRUE(list.Scan(Root(), "", false, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . Real"}));
}

TEST_F(ScannerEntriesTest, BindMountLoopIsNotEnteredAgain)
{
    Touch("A/a.mp3");
    Touch("top.mp3");
    const std::string loop = Root() + "/A/loop";
    MakeDirs(loop);
    if (mount(Root().c_str(), loop.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "cannot bind-mount here (needs root): " << std::strerror(errno);
    }
    const SMountGuard guard{loop};
    // The mount is there: the loop folder shows the tree's own top.
    struct stat status {};
    ASSERT_EQ(stat((loop + "/A/a.mp3").c_str(), &status), 0);

    ASSERT_TRUE(list.Scan(Root(), "", true, true, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"D . A", "F ./A a.mp3", "F . top.mp3"}));
    ASSERT_TRUE(list.Scan(Root(), "", true, false, false));
    EXPECT_EQ(Describe(list, Root()), (std::vector<std::string>{"F ./A a.mp3", "F . top.mp3"}));
}

// A NUL byte inside a path: opendir reads only the part before it, so every
// child path would name the starting folder again. Such a folder cannot be
// opened by its path, so the walk leaves it out instead of descending.
TEST_F(ScannerEntriesTest, PathCutShortByANulByteEndsTheWalk)
{
    Touch("Sub/a.mp3");
    Touch("top.mp3");
    const std::string cut = Root() + std::string("/\0usb-stick2", 12);
    ASSERT_TRUE(list.Scan(cut, "", true, true, false));
    ASSERT_EQ(list.m_files.size(), 1u);
    EXPECT_EQ(list.m_files[0].m_name, "top.mp3");
    ASSERT_TRUE(list.Scan(cut, "", false, true, false));
    EXPECT_EQ(list.m_files.size(), 1u);
}
