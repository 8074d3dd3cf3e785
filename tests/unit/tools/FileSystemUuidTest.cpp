// Finding a mounted stick's file system UUID from a mount table and a folder
// of links as udev makes them, both made in a temporary folder.
#include "tools/FileSystemUuid.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <unistd.h>

using testing_support::MakeDirs;
using testing_support::TempDir;
using testing_support::WriteFile;
using usbctl::FileSystemUuidOf;

namespace {
class FileSystemUuidTest : public ::testing::Test {
protected:
    FileSystemUuidTest() { MakeDirs(ByUuid()); }

    std::string ByUuid() const { return dir / "dev/disk/by-uuid"; }
    std::string MountInfo() const { return dir / "mountinfo"; }

    // A link as udev makes it: relative, to the device two folders up.
    void Link(const std::string& uuid, const std::string& target) const
    {
        ASSERT_EQ(symlink(target.c_str(), (ByUuid() + "/" + uuid).c_str()), 0) << uuid;
    }

    // One mountinfo line for a file system of `source` at `mountPoint` (escaped as the kernel does).
    static std::string Line(int id, const std::string& mountPoint, const std::string& source,
                            const std::string& device = "8:1")
    {
        return std::to_string(id) + " 22 " + device + " / " + mountPoint +
               " ro,nosuid,nodev,noexec,relatime shared:" + std::to_string(id) + " - vfat " + source +
               " ro,fmask=0022,dmask=0022\n";
    }

    std::string Find(const std::string& mountPoint) const { return FileSystemUuidOf(mountPoint, MountInfo(), ByUuid()); }

    TempDir dir;
};
}  // namespace

TEST_F(FileSystemUuidTest, TheLinkToTheMountedDeviceNamesIt)
{
    Link("0C1E-3F22", "../../sdb1");
    Link("4A2B-91C0", "../../sda1");
    WriteFile(MountInfo(), "21 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n" +
                               Line(30, "/mnt/usb-stick1", dir / "dev/sda1") +
                               Line(31, "/mnt/usb-stick2", dir / "dev/sdb1", "8:17"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "4A2B-91C0");
    EXPECT_EQ(Find("/mnt/usb-stick2/"), "0C1E-3F22");
}

TEST_F(FileSystemUuidTest, AnAbsoluteLinkToo)
{
    Link("1f0e8a52-7d3c-4b1e-9a6d-2c5e8f1b7a90", dir / "dev/sda1");
    WriteFile(MountInfo(), Line(30, "/mnt/usb-stick1", dir / "dev/./sda1"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "1f0e8a52-7d3c-4b1e-9a6d-2c5e8f1b7a90");
}

TEST_F(FileSystemUuidTest, EscapedSpacesInTheMountTable)
{
    Link("4A2B-91C0", "../../sda1");
    WriteFile(MountInfo(), Line(30, "/tmp/my\\040root/mnt/usb-stick1", dir / "dev/sda1"));
    EXPECT_EQ(Find("/tmp/my root/mnt/usb-stick1"), "4A2B-91C0");
    EXPECT_EQ(Find("/tmp/my\\040root/mnt/usb-stick1"), "");
}

TEST_F(FileSystemUuidTest, TheFileSystemOnTopCounts)
{
    Link("0C1E-3F22", "../../sdb1");
    Link("4A2B-91C0", "../../sda1");
    WriteFile(MountInfo(), Line(30, "/mnt/usb-stick1", dir / "dev/sda1") +
                               Line(31, "/mnt/usb-stick1", dir / "dev/sdb1", "8:17"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "0C1E-3F22");
}

TEST_F(FileSystemUuidTest, NothingMountedThereNoUuid)
{
    Link("4A2B-91C0", "../../sda1");
    WriteFile(MountInfo(), Line(30, "/mnt/usb-stick2", dir / "dev/sda1"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "");
    EXPECT_EQ(Find("/mnt"), "");
}

TEST_F(FileSystemUuidTest, NoLinkToTheDeviceNoUuid)
{
    Link("0C1E-3F22", "../../sdb1");
    Link("dangling", "../../sda10");
    WriteFile(MountInfo(), Line(30, "/mnt/usb-stick1", dir / "dev/sda1") +
                               Line(31, "/mnt/usb-stick2", "tmpfs", "0:45"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "");
    EXPECT_EQ(Find("/mnt/usb-stick2"), "");
}

TEST_F(FileSystemUuidTest, UnreadableFilesNoUuid)
{
    Link("4A2B-91C0", "../../sda1");
    EXPECT_EQ(Find("/mnt/usb-stick1"), "");
    WriteFile(MountInfo(), Line(30, "/mnt/usb-stick1", dir / "dev/sda1"));
    EXPECT_EQ(FileSystemUuidOf("/mnt/usb-stick1", MountInfo(), dir / "no-such-folder"), "");
}

TEST_F(FileSystemUuidTest, MalformedLinesAreSkipped)
{
    Link("4A2B-91C0", "../../sda1");
    WriteFile(MountInfo(), "garbage\n30 22 8:1 / /mnt/usb-stick1 ro shared:1 vfat\n\n" +
                               Line(31, "/mnt/usb-stick1", dir / "dev/sda1"));
    EXPECT_EQ(Find("/mnt/usb-stick1"), "4A2B-91C0");
}
