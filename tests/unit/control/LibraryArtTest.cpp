// The covers of the tag library's albums: written once per album, and again
// only when the file is gone from the bounded folder.
#include "control/LibraryArt.h"

#include "library/FileId.h"
#include "library/TagLibrary.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireTimeout.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>

using testing_support::FolderNames;
using testing_support::kWireTimeoutMs;
using testing_support::MediaFactory;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

class LibraryArtTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", m_dir.Path().c_str(), 1);
        // Two albums of one artist: one with a cover file beside it, one without.
        MediaFactory::Place(MediaFactory::Mp3(1.0, "One", "Band", "Covered"), Stick() + "/Covered/1.mp3");
        WriteFile(Stick() + "/Covered/cover.jpg", "the cover");
        MediaFactory::Place(MediaFactory::Mp3(1.0, "Two", "Band", "Bare"), Stick() + "/Bare/2.mp3");
        ASSERT_NO_FATAL_FAILURE(ScanToEnd());
    }
    void TearDown() override
    {
        m_library.Stop();
        unsetenv("USBMEDIA_ROOT");
    }

    std::string Stick() const { return m_dir / "mnt/usb-stick1"; }
    std::string ArtFolder() const { return m_dir / "art/library"; }

    void ScanToEnd()
    {
        m_library.ScanStick(Stick(), "sda1");
        std::unique_lock<std::mutex> lock(m_mutex);
        ASSERT_TRUE(m_ended.wait_for(lock, std::chrono::milliseconds(kWireTimeoutMs), [this] {
            return m_last == ELibraryState::kReady || m_last == ELibraryState::kFailed;
        }));
        ASSERT_EQ(m_last, ELibraryState::kReady);
    }

    // The album of the track titled `title`.
    uint32_t AlbumOf(const std::string& title)
    {
        const auto found = m_library.Read([&](CTagStore& store) { return store.SearchTracks(title, PageFrom(0, 1)); });
        EXPECT_EQ(found.items.size(), 1u) << title;
        const std::string folder = found.items.empty() ? std::string() : found.items[0].path;
        const auto albums = m_library.Read([](CTagStore& store) { return store.Albums(PageFrom(0, 10)); });
        for (const SAlbumEntry& album : albums.items) {
            const SAlbumArtSource source = m_library.Read([&](CTagStore& store) { return store.AlbumArtSource(album.id); });
            if (source.folder == folder) {
                return album.id;
            }
        }
        ADD_FAILURE() << "no album holds " << title;
        return 0;
    }

    TempDir m_dir;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    ELibraryState m_last = ELibraryState::kIdle;
    CTagLibrary m_library{m_dir / "tags", [this](const SLibraryStatus& status) {
                              {
                                  const std::lock_guard<std::mutex> lock(m_mutex);
                                  m_last = status.state;
                              }
                              m_ended.notify_all();
                          }};
    CLibraryArt m_art{ArtFolder()};
};

}  // namespace

TEST_F(LibraryArtTest, AnAlbumsCoverIsWrittenOnce)
{
    const uint32_t album = AlbumOf("One");
    const std::string path = m_art.PathOf(m_library, album);
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(ReadFile(path), "the cover");
    // A second ask gives the same file, not written again.
    WriteFile(path, "left as it was");
    EXPECT_EQ(m_art.PathOf(m_library, album), path);
    EXPECT_EQ(ReadFile(path), "left as it was");
    EXPECT_EQ(FolderNames(ArtFolder()).size(), 1u);
}

TEST_F(LibraryArtTest, AnEvictedCoverIsWrittenAgain)
{
    const uint32_t album = AlbumOf("One");
    const std::string path = m_art.PathOf(m_library, album);
    ASSERT_FALSE(path.empty());
    ASSERT_EQ(unlink(path.c_str()), 0);
    const std::string again = m_art.PathOf(m_library, album);
    ASSERT_FALSE(again.empty());
    EXPECT_EQ(access(again.c_str(), F_OK), 0) << again;
    EXPECT_EQ(ReadFile(again), "the cover");
}

TEST_F(LibraryArtTest, AnAlbumWithoutACoverHasNoFile)
{
    EXPECT_EQ(m_art.PathOf(m_library, AlbumOf("Two")), "");
    EXPECT_EQ(m_art.PathOf(m_library, 0xFFFFFFFEu), "") << "an album the library does not hold";
    EXPECT_TRUE(FolderNames(ArtFolder()).empty());
}
