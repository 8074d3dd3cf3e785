// The tag library of the stick followed: real scan threads over real files
// on a stick below a private USBMEDIA_ROOT, heard through the status
// listener, and the queries a request thread runs meanwhile.
#include "library/TagLibrary.h"

#include "tests/support/MediaFactory.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireTimeout.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using testing_support::kWireTimeoutMs;
using testing_support::MakeDirs;
using testing_support::MediaFactory;
using testing_support::TempDir;

namespace {

constexpr uint32_t kSongs = 12;
constexpr const char* kDevice = "sda1";

// What the library announced, in order, for a test to wait on.
class Announcements {
public:
    void Hear(const SLibraryStatus& status)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_heard.push_back(status);
        }
        m_changed.notify_all();
    }

    size_t Size()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_heard.size();
    }

    std::vector<SLibraryStatus> All()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_heard;
    }

    // Waits for an announcement of `state` at or after position `from`;
    // false when none came in the longest wait a loaded machine needs.
    bool WaitFor(ELibraryState state, size_t from = 0)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(kWireTimeoutMs), [&] {
            for (size_t position = from; position < m_heard.size(); ++position) {
                if (m_heard[position].state == state) {
                    return true;
                }
            }
            return false;
        });
    }

    // The states heard, each run of one state told once.
    std::vector<std::string> States()
    {
        std::vector<std::string> states;
        for (const SLibraryStatus& status : All()) {
            const std::string name = LibraryStateName(status.state);
            if (states.empty() || states.back() != name) {
                states.push_back(name);
            }
        }
        return states;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<SLibraryStatus> m_heard;
};

std::string Describe(const std::vector<std::string>& states)
{
    std::string text;
    for (const std::string& state : states) {
        text += (text.empty() ? "" : ", ") + state;
    }
    return "[" + text + "]";
}

class TagLibraryTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("USBMEDIA_ROOT", m_dir.Path().c_str(), 1);
        for (uint32_t song = 0; song < kSongs; ++song) {
            const std::string artist = song % 2 == 0 ? "Even Band" : "Odd Band";
            MediaFactory::Place(MediaFactory::Mp3(1.0, "Song " + std::to_string(song), artist),
                                Stick() + "/Album " + std::to_string(song % 3) + "/" + std::to_string(song) + ".mp3");
        }
    }
    void TearDown() override
    {
        m_library.Stop();
        unsetenv("USBMEDIA_ROOT");
    }

    std::string Stick() const { return m_dir / "mnt/usb-stick1"; }
    std::string DatabaseFolder() const { return m_dir / "var/lib/usbmedia/tags"; }

    uint32_t TracksListed()
    {
        return m_library.Read([](CTagStore& store) { return store.Tracks(PageFrom(0, 100)).totalCount; });
    }

    // Scans the stick and waits for its end.
    void ScanToReady()
    {
        const size_t from = m_heard.Size();
        m_library.ScanStick(Stick(), kDevice);
        ASSERT_TRUE(m_heard.WaitFor(ELibraryState::kReady, from)) << Describe(m_heard.States());
    }

    TempDir m_dir;
    Announcements m_heard;
    CTagLibrary m_library{DatabaseFolder(), [this](const SLibraryStatus& status) { m_heard.Hear(status); }};
};

}  // namespace

TEST_F(TagLibraryTest, AScanIsHeardScanningThenReadyWithItsCounts)
{
    ASSERT_NO_FATAL_FAILURE(ScanToReady());
    const std::vector<SLibraryStatus> heard = m_heard.All();
    EXPECT_EQ(m_heard.States(), (std::vector<std::string>{"scanning", "ready"})) << Describe(m_heard.States());
    EXPECT_EQ(heard.front().state, ELibraryState::kScanning);
    const SLibraryStatus& last = heard.back();
    EXPECT_EQ(last.state, ELibraryState::kReady);
    EXPECT_EQ(last.counts.tracks, kSongs);
    EXPECT_EQ(last.counts.artists, 2u);
    EXPECT_EQ(last.counts.albums, 1u) << "the tracks without an album name are one album";
    EXPECT_EQ(last.scanned, kSongs);
    EXPECT_EQ(last.total, kSongs);
    EXPECT_EQ(m_library.Status().state, ELibraryState::kReady);
    EXPECT_EQ(TracksListed(), kSongs);
    const auto artists = m_library.Read([](CTagStore& store) { return store.Artists(PageFrom(0, 10)); });
    ASSERT_EQ(artists.items.size(), 2u);
    EXPECT_EQ(artists.items[0].name, "Even Band");
    EXPECT_EQ(artists.items[0].trackCount, kSongs / 2);
}

TEST_F(TagLibraryTest, WithoutAnIdentityTheDatabaseIsNamedByTheStorageChecksum)
{
    ASSERT_NO_FATAL_FAILURE(ScanToReady());
    const std::string path = m_library.DatabasePath();
    EXPECT_EQ(path.rfind(DatabaseFolder() + "/tags-crc-", 0), 0u) << path;
    EXPECT_EQ(access(path.c_str(), F_OK), 0) << path;
}

TEST_F(TagLibraryTest, TheStickIdentityNamesTheDatabase)
{
    m_library.SetStickIdentity(kDevice, "2C4A-11F0");
    m_library.SetStickIdentity("sdb1", "FFFF-0000");
    ASSERT_NO_FATAL_FAILURE(ScanToReady());
    const std::string expected = DatabaseFolder() + "/tags-uuid-2C4A-11F0.sqlite";
    EXPECT_EQ(m_library.DatabasePath(), expected);
    EXPECT_EQ(access(expected.c_str(), F_OK), 0);
    EXPECT_EQ(TracksListed(), kSongs);
}

TEST_F(TagLibraryTest, ASecondScanSupersedesTheFirstWithoutAnIdleBetween)
{
    m_library.ScanStick(Stick(), kDevice);
    m_library.ScanStick(Stick(), kDevice);
    // The first scan's thread was joined before the second began: whatever
    // comes from here on is the second scan's.
    const size_t second = m_heard.Size();
    ASSERT_TRUE(m_heard.WaitFor(ELibraryState::kReady, second)) << Describe(m_heard.States());
    const std::vector<std::string> states = m_heard.States();
    // Ended early, the first scan is not heard of; done before the second
    // began, it was ready.
    const std::vector<std::string> superseded = {"scanning", "ready"};
    const std::vector<std::string> finished = {"scanning", "ready", "scanning", "ready"};
    EXPECT_TRUE(states == superseded || states == finished) << Describe(states);
    EXPECT_EQ(m_heard.All().back().counts.tracks, kSongs);
    EXPECT_EQ(TracksListed(), kSongs);
}

TEST_F(TagLibraryTest, ThePulledStickLeavesTheLibraryIdleAndEmpty)
{
    ASSERT_NO_FATAL_FAILURE(ScanToReady());
    const size_t before = m_heard.Size();
    m_library.StickRemoved("sdb1");
    EXPECT_EQ(m_heard.Size(), before) << "another device changes nothing";
    EXPECT_EQ(TracksListed(), kSongs);
    m_library.StickRemoved(kDevice);
    const std::vector<SLibraryStatus> heard = m_heard.All();
    ASSERT_EQ(heard.size(), before + 1);
    EXPECT_EQ(heard.back().state, ELibraryState::kIdle);
    EXPECT_EQ(heard.back().counts.tracks, 0u);
    EXPECT_EQ(m_library.Status().state, ELibraryState::kIdle);
    EXPECT_EQ(m_library.DatabasePath(), "");
    EXPECT_EQ(TracksListed(), 0u);
    EXPECT_EQ(m_library.Read([](CTagStore& store) { return store.Artists(PageFrom(0, 10)).totalCount; }), 0u);
}

TEST_F(TagLibraryTest, AStickPulledWhileScanningEndsIdle)
{
    m_library.ScanStick(Stick(), kDevice);
    m_library.StickRemoved(kDevice);
    // The scan thread is joined: nothing follows the idle.
    const std::vector<std::string> states = m_heard.States();
    ASSERT_FALSE(states.empty());
    EXPECT_EQ(states.back(), "idle") << Describe(states);
    EXPECT_EQ(m_library.Status().state, ELibraryState::kIdle);
    EXPECT_EQ(TracksListed(), 0u);
}

TEST_F(TagLibraryTest, PauseEndsTheScanAndResumeRunsItAgain)
{
    m_library.ScanStick(Stick(), kDevice);
    m_library.Pause();
    EXPECT_NE(m_library.Status().state, ELibraryState::kScanning) << Describe(m_heard.States());
    const size_t paused = m_heard.Size();
    m_library.Resume();
    // Paused mid-scan, it scans again; done before the pause, it stays ready.
    if (m_heard.Size() > paused) {
        ASSERT_TRUE(m_heard.WaitFor(ELibraryState::kReady, paused)) << Describe(m_heard.States());
    }
    EXPECT_EQ(m_library.Status().state, ELibraryState::kReady) << Describe(m_heard.States());
    EXPECT_EQ(TracksListed(), kSongs);
}

TEST_F(TagLibraryTest, PauseWithNoScanUnderWayResumesNothing)
{
    ASSERT_NO_FATAL_FAILURE(ScanToReady());
    const size_t before = m_heard.Size();
    m_library.Pause();
    m_library.Resume();
    EXPECT_EQ(m_heard.Size(), before) << Describe(m_heard.States());
    EXPECT_EQ(m_library.Status().state, ELibraryState::kReady);
}

TEST_F(TagLibraryTest, StopEndsTheScanAndNoneStartsAfterIt)
{
    m_library.ScanStick(Stick(), kDevice);
    m_library.Stop();
    EXPECT_NE(m_library.Status().state, ELibraryState::kScanning) << Describe(m_heard.States());
    const size_t stopped = m_heard.Size();
    m_library.ScanStick(Stick(), kDevice);
    m_library.Resume();
    EXPECT_EQ(m_heard.Size(), stopped) << Describe(m_heard.States());
    EXPECT_NE(m_library.Status().state, ELibraryState::kScanning);
}

TEST_F(TagLibraryTest, AFolderOffTheSticksFails)
{
    MakeDirs(m_dir / "elsewhere");
    MediaFactory::Place(MediaFactory::Mp3(1.0, "Elsewhere"), m_dir / "elsewhere/a.mp3");
    m_library.ScanStick(m_dir / "elsewhere", kDevice);
    ASSERT_TRUE(m_heard.WaitFor(ELibraryState::kFailed)) << Describe(m_heard.States());
    EXPECT_EQ(TracksListed(), 0u);
}

TEST_F(TagLibraryTest, BeforeAnyScanTheListsAreEmpty)
{
    EXPECT_EQ(m_library.Status().state, ELibraryState::kIdle);
    EXPECT_EQ(m_library.DatabasePath(), "");
    EXPECT_EQ(TracksListed(), 0u);
}
