// Faults the daemon must survive: the stick vanishing during a scan or
// playback, broken media, odd names, very deep and very large trees, an art
// directory that cannot be written, and termination in the middle of work.
// In each case the daemon keeps serving and other clients are unaffected.

#include "core/PosixHandles.h"
#include "tests/integration/DeviceFixture.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/TempDir.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using device_test::DeviceTest;
using device_test::MakeWideTree;
using device_test::SecondsSince;
using testing_support::MakeDirs;
using testing_support::MediaFactory;
using testing_support::RpcClient;
using testing_support::TempDir;
using testing_support::WriteFile;
using testing_support::kWireTimeoutMs;

namespace {
using Clock = std::chrono::steady_clock;

// The daemon stops within 1.5 s of SIGTERM; ThreadSanitizer adds a sleep of
// its own (atexit_sleep_ms, 1 s) at exit.
#if defined(__SANITIZE_THREAD__)
constexpr double kStopSeconds = 2.5;
#else
constexpr double kStopSeconds = 1.5;
#endif

void CreateEmptyFile(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    ::close(fd);
}

// 400 folders of 499 files: 200,000 entries, made once per test process.
const std::string& HugeTree()
{
    // In memory when /dev/shm is there (creating and removing 200,000 files
    // on disk is slow).
    static testing_support::MemoryTempDir directory("usbmedia-tree");
    static const std::string root = [] {
        const auto start = Clock::now();
        MakeWideTree(directory.Path(), 400, 499);
        std::printf("made 200000 entries in %.2f s\n", SecondsSince(start));
        return directory.Path();
    }();
    return root;
}

// Tells when some process opens a folder inside `directory` (inotify): the
// sign that a scan of it is under way, not merely about to start.
class SubfolderOpenWatch {
public:
    explicit SubfolderOpenWatch(const std::string& directory)
        : m_inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        m_watching = m_inotify.IsValid() && inotify_add_watch(m_inotify.Get(), directory.c_str(), IN_OPEN) >= 0;
    }

    bool Watching() const { return m_watching; }

    // True once a folder inside the directory has been opened.
    bool Wait(int timeoutMs)
    {
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            if (SubfolderOpened()) {
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd ready{m_inotify.Get(), POLLIN, 0};
            if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
                return SubfolderOpened();
            }
        }
    }

private:
    // Reads the events queued so far; true when one names a folder inside
    // (the directory's own events carry no name).
    bool SubfolderOpened()
    {
        alignas(inotify_event) char buffer[4096];
        bool opened = false;
        for (ssize_t size; (size = ::read(m_inotify.Get(), buffer, sizeof buffer)) > 0;) {
            for (ssize_t at = 0; at < size;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                opened = opened || ((event->mask & IN_ISDIR) != 0 && event->len > 0);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return opened;
    }

    UniqueFd m_inotify;
    bool m_watching = false;
};

class FaultTest : public DeviceTest {
protected:
    // A second client, connected after the daemon started, is answered, and
    // the daemon's memory stayed bounded through the fault.
    void ExpectOthersServed()
    {
        RpcClient other;
        ASSERT_TRUE(other.Connect(m_daemon->Port()));
        {
            const Json::Value reply = other.Call("ping", Json::Value(), kWireTimeoutMs);
            EXPECT_EQ(reply["result"], true) << reply.toStyledString();
        }
        {
            const Json::Value reply = Call("ping");
            EXPECT_EQ(reply["result"], true) << reply.toStyledString();
        }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        // Sanitizers keep their own shadow and quarantine memory; the bound
        // is checked in the plain build.
        EXPECT_LT(ResidentKiB(), 256 * 1024);
#endif
    }

    // Makes the first stick's mount point a link to `tree`.
    void MountTree(const std::string& tree)
    {
        ASSERT_EQ(::rmdir(Stick1().c_str()), 0);
        ASSERT_EQ(::symlink(tree.c_str(), Stick1().c_str()), 0);
    }

    void PlaceSong(const std::string& path, double seconds = 2)
    {
        MediaFactory::Place(MediaFactory::Mp3(seconds, "Song", "Artist", "Album"), path);
    }

    // The first usbConnectionNotification, or null.
    Json::Value NextUsbNotification(int timeoutMs = kWireTimeoutMs)
    {
        Json::Value notification;
        return NextNotification(notification, "usbConnectionNotification", timeoutMs) ? notification
                                                                                          : Json::Value();
    }
};
}  // namespace

TEST_F(FaultTest, StickRenamedAwayDuringScan)
{
    MountTree(HugeTree());
    StartDaemon();
    const std::string gone = Stick1() + ".gone";
    SubfolderOpenWatch scan(HugeTree());
    ASSERT_TRUE(scan.Watching());
    bool scanSeen = false;
    std::thread remover([this, gone, &scan, &scanSeen] {
        scanSeen = scan.Wait(kWireTimeoutMs);
        ASSERT_EQ(std::rename(Stick1().c_str(), gone.c_str()), 0);
    });
    const auto start = Clock::now();
    const Json::Value reply = Index(Stick1());
    const double seconds = SecondsSince(start);
    remover.join();
    EXPECT_TRUE(scanSeen) << "the scan opened no folder of the stick";
    ASSERT_TRUE(reply["result"]["success"].isBool()) << reply.toStyledString();
    // Folders that vanished under the scan count as empty: a partial index.
    const int indexedFolders = Browse(Stick1(), 1)["result"]["totalCount"].asInt();
    std::printf("index with the stick renamed away once the scan was in it: %.2f s, success %d, %d of 400 folders\n",
                seconds,
                reply["result"]["success"].asBool() ? 1 : 0, indexedFolders);
    EXPECT_LE(indexedFolders, 400);
    ExpectOthersServed();

    // The stick is gone: indexing it again fails.
    const Json::Value again = Index(Stick1());
    EXPECT_FALSE(again["result"]["success"].asBool()) << again.toStyledString();
    EXPECT_EQ(again["error"]["code"].asInt(), -1) << again.toStyledString();
    EXPECT_EQ(again["error"]["message"].asString(), "E: While opendir " + Stick1()) << again.toStyledString();

    // Back again, it is indexed whole.
    ASSERT_EQ(std::rename(gone.c_str(), Stick1().c_str()), 0);
    {
        const Json::Value reply = Index(Stick1());
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Browse(Stick1(), 1);
        EXPECT_EQ(reply["result"]["totalCount"].asInt(), 400) << reply.toStyledString();
    }
}

TEST_F(FaultTest, PlayingFileDeletedPlaysOnFromItsOpenHandle)
{
    PlaceSong(Stick1() + "/a.mp3", 3);
    PlaceSong(Stick1() + "/b.mp3", 2);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(Stick1(), "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlayingFile("a.mp3"));
    ASSERT_EQ(::unlink((Stick1() + "/a.mp3").c_str()), 0);
    // The decoder still holds the file open: the track plays to its end and
    // the next one follows.
    Json::Value notification;
    bool reachedTwo = false;
    while (!reachedTwo && NextNotification(notification, "trackTimeNotification", kWireTimeoutMs)) {
        reachedTwo = notification["params"]["trackTime"].asInt() >= 2;
    }
    EXPECT_TRUE(reachedTwo);
    EXPECT_TRUE(WaitForPlayingFile("b.mp3"));
    ExpectOthersServed();
}

TEST_F(FaultTest, NextTrackDeletedBetweenTracksRestartsFromTheStickRoot)
{
    PlaceSong(Stick1() + "/a.mp3", 4);
    PlaceSong(Stick1() + "/b.mp3", 2);
    PlaceSong(Stick1() + "/c.mp3", 4);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(Stick1(), "b.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlayingFile("b.mp3"));
    ASSERT_EQ(::unlink((Stick1() + "/c.mp3").c_str()), 0);
    // c.mp3 is not found when its turn comes: play everything from the root.
    EXPECT_TRUE(WaitForPlayingFile("a.mp3"));
    EXPECT_TRUE(m_daemon->WaitForOutput("Error: ", 1000));
    ExpectOthersServed();
}

TEST_F(FaultTest, StickRemovedDuringPlaybackReportsTheFileNotFound)
{
    PlaceSong(Stick1() + "/a.mp3", 3);
    PlaceSong(Stick1() + "/b.mp3", 2);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(Stick1(), "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlayingFile("a.mp3"));
    ASSERT_EQ(std::rename(Stick1().c_str(), (Stick1() + ".gone").c_str()), 0);
    // a.mp3 plays on from its open handle; b.mp3 is then not found, the
    // restart from the root finds a.mp3 gone too, and the stick is reported.
    const std::vector<Json::Value> seen = NotificationsUntil("usbConnectionNotification");
    ASSERT_FALSE(seen.empty());
    const Json::Value& last = seen.back();
    ASSERT_EQ(last["method"].asString(), "usbConnectionNotification") << last.toStyledString();
    EXPECT_EQ(last["params"]["usbDeviceName"].asString(), "usb1") << last.toStyledString();
    EXPECT_FALSE(last["params"]["connected"].asBool()) << last.toStyledString();
    EXPECT_EQ(last["params"]["errorCode"].asString(), "fileNotFound") << last.toStyledString();
    ExpectOthersServed();
}

TEST_F(FaultTest, BrokenMediaIsSkippedAndAFolderNamedLikeASongIsAFolder)
{
    const std::string mix = Stick1() + "/mix";
    MakeDirs(mix);
    CreateEmptyFile(mix + "/a.mp3");
    WriteFile(mix + "/b.mp3", std::string(20000, 'x'));
    const std::string whole = testing_support::ReadFile(MediaFactory::Mp3(4, "Half", "Artist", "Album"));
    WriteFile(mix + "/c.mp3", whole.substr(0, whole.size() / 2));
    PlaceSong(mix + "/x.mp3/d.mp3", 2);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }

    const Json::Value list = Browse(mix)["result"]["filelist"];
    ASSERT_EQ(list.size(), 4u) << list.toStyledString();
    EXPECT_EQ(list[0]["name"].asString(), "x.mp3") << list.toStyledString();
    EXPECT_TRUE(list[0]["isFolder"].asBool()) << list.toStyledString();
    EXPECT_EQ(list[1]["name"].asString(), "a.mp3") << list.toStyledString();
    EXPECT_EQ(list[3]["name"].asString(), "c.mp3") << list.toStyledString();

    // Empty and non-audio files are skipped, the truncated one plays what it
    // has, and the song inside the folder named x.mp3 comes last.
    {
        const Json::Value reply = PlayFolder(Stick1(), "mix");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_TRUE(WaitForPlayingFile("d.mp3"));
    ExpectOthersServed();
}

TEST_F(FaultTest, FolderNamedLikeASongPlayedAsAFilePlaysTheWholeStick)
{
    PlaceSong(Stick1() + "/x.mp3/d.mp3", 2);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    // No file of that name in the root's playlist: the whole stick plays.
    {
        const Json::Value reply = PlayFile(Stick1(), "x.mp3");
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value info;
    ASSERT_TRUE(NextNotification(info, "trackInfoNotification", kWireTimeoutMs));
    EXPECT_EQ(info["params"]["trackInfo"]["fileName"].asString(), "d.mp3") << info.toStyledString();
    EXPECT_EQ(info["params"]["trackInfo"]["filePath"].asString(), Stick1() + "/x.mp3") << info.toStyledString();
    Json::Value end;
    EXPECT_TRUE(NextNotification(end, "endOfPlayListNotification", kWireTimeoutMs));
    ExpectOthersServed();
}

TEST_F(FaultTest, LoneEmptyFileEndsThePlaylist)
{
    CreateEmptyFile(Stick1() + "/empty.mp3");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(Stick1(), "empty.mp3");
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const std::vector<Json::Value> seen = NotificationsUntil("endOfPlayListNotification", kWireTimeoutMs);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0]["params"]["playerState"], 4) << seen[0].toStyledString();
    EXPECT_EQ(seen[1]["params"]["playerState"], 0) << seen[1].toStyledString();
    EXPECT_EQ(seen[2]["method"].asString(), "endOfPlayListNotification") << seen[2].toStyledString();
    ExpectOthersServed();
}

TEST_F(FaultTest, OddNamesAreBrowsedAndPlayed)
{
    const std::vector<std::string> storedNames{
        "ctl\x01\x1f\x7f.mp3",
        "bad\xff\xfe utf8 \xc3.mp3",
        std::string(251, 'n') + ".mp3",
    };
    for (const std::string& name : storedNames) {
        PlaceSong(Stick1() + "/" + name, 2);
    }
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const Json::Value list = Browse(Stick1())["result"]["filelist"];
    ASSERT_EQ(list.size(), storedNames.size()) << list.toStyledString();
    std::vector<std::string> names;
    for (const Json::Value& entry : list) {
        names.push_back(entry["name"].asString());
    }
    // Names arrive as UTF-8 of their ISO8859-1 bytes, in byte order of the stored names.
    EXPECT_EQ(names[0], "bad\xc3\xbf\xc3\xbe utf8 \xc3\x83.mp3");
    EXPECT_EQ(names[1], "ctl\x01\x1f\x7f.mp3");
    EXPECT_EQ(names[2], storedNames[2]);
    for (const Json::Value& entry : list) {
        const std::string name = entry["name"].asString();
        ASSERT_TRUE(PlayFile(entry["path"].asString(), name)["result"]["success"].asBool()) << name;
        EXPECT_TRUE(WaitForPlayingFile(name)) << name;
    }
    ExpectOthersServed();
}

TEST_F(FaultTest, TreeTwoHundredFoldersDeepIsIndexedBrowsedAndPlayed)
{
    std::string deepest = Stick1();
    for (int level = 0; level < 200; ++level) {
        deepest += "/d";
    }
    PlaceSong(deepest + "/song.mp3", 2);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    std::string folder = Stick1();
    for (int level = 0; level < 200; ++level) {
        const Json::Value list = Browse(folder)["result"]["filelist"];
        ASSERT_EQ(list.size(), 1u) << "level " << level;
        ASSERT_TRUE(list[0]["isFolder"].asBool()) << "level " << level << ": " << list.toStyledString();
        folder += "/" + list[0]["name"].asString();
    }
    ASSERT_EQ(folder, deepest);
    const Json::Value list = Browse(folder)["result"]["filelist"];
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]["name"].asString(), "song.mp3") << list.toStyledString();
    {
        const Json::Value reply = PlayFile(folder, "song.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_TRUE(WaitForPlayingFile("song.mp3"));
    ExpectOthersServed();
}

TEST_F(FaultTest, TwoHundredThousandEntriesAreIndexedQuickly)
{
    MountTree(HugeTree());
    StartDaemon();
    const auto start = Clock::now();
    const Json::Value reply = Index(Stick1());
    const double seconds = SecondsSince(start);
    std::printf("index of 200000 entries: %.2f s\n", seconds);
    ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_LT(seconds, 20.0);

    const Json::Value root = Browse(Stick1(), 10, 0)["result"];
    EXPECT_EQ(root["totalCount"].asInt(), 400) << root.toStyledString();
    const Json::Value page = Browse(Stick1() + "/folder7", 10, 100)["result"];
    EXPECT_EQ(page["totalCount"].asInt(), 499) << page.toStyledString();
    EXPECT_EQ(page["filelist"].size(), 10u) << page.toStyledString();
    {
        const Json::Value reply = Call("getUsbStorageCrc32");
        EXPECT_FALSE(reply["result"]["crc32"].asString().empty()) << reply.toStyledString();
    }
    ExpectOthersServed();
}

TEST_F(FaultTest, ArtDirectoryBlockedByAFileGivesAnEmptyPath)
{
    WriteFile(ArtDirectory(), "a file where the art directory belongs");
    device_test::TrackTags tags;
    tags.title = "Covered";
    tags.coverPath = device_test::CoverJpeg();
    device_test::MakeMp3(Stick1() + "/cover.mp3", 4.0, tags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getTrackAlbumArt");
        ASSERT_EQ(reply["result"], true) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackAlbumArtNotification", kWireTimeoutMs));
    EXPECT_EQ(notification["params"]["artFilePath"].asString(), "") << notification.toStyledString();
    EXPECT_EQ(notification["params"]["trackIndex"].asInt(), 1) << notification.toStyledString();
    EXPECT_EQ(testing_support::ReadFile(ArtDirectory()), "a file where the art directory belongs");
    ExpectOthersServed();
}

// The art directory on a file system with no room left: the worker still
// answers (with the path it opened, or "" when nothing could be opened), the
// file holds no more than fitted, and the service goes on.
TEST_F(FaultTest, FullDiskWhenWritingArtIsAnsweredAndServiceGoesOn)
{
    MakeDirs(ArtDirectory());
    if (::mount("tmpfs", ArtDirectory().c_str(), "tmpfs", 0, "size=16k,nr_inodes=16") != 0) {
        GTEST_SKIP() << "cannot mount a small file system here";
    }
    struct SUnmount {
        std::string path;
        ~SUnmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{ArtDirectory()};
    {
        // Fill it to the last byte.
        FILE* filler = std::fopen((ArtDirectory() + "/filler").c_str(), "w");
        ASSERT_NE(filler, nullptr);
        const std::string block(1024, 'x');
        while (std::fwrite(block.data(), 1, block.size(), filler) == block.size() && std::fflush(filler) == 0) {
        }
        std::fclose(filler);
    }
    device_test::TrackTags tags;
    tags.coverPath = device_test::CoverJpeg();
    device_test::MakeMp3(Stick1() + "/cover.mp3", 4.0, tags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getTrackAlbumArt");
        ASSERT_EQ(reply["result"], true) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackAlbumArtNotification", kWireTimeoutMs));
    const std::string path = notification["params"]["artFilePath"].asString();
    if (!path.empty()) {
        EXPECT_EQ(path, ArtDirectory() + "/art.dat");
        EXPECT_LT(testing_support::ReadFile(path).size(), testing_support::ReadFile(device_test::CoverJpeg()).size());
    }
    ExpectOthersServed();
}

TEST_F(FaultTest, ReadOnlyArtDirectoryGivesAnEmptyPath)
{
    if (::geteuid() == 0) {
        GTEST_SKIP() << "permission bits do not stop root from writing";
    }
    MakeDirs(ArtDirectory());
    ASSERT_EQ(::chmod(ArtDirectory().c_str(), 0500), 0);
    device_test::TrackTags tags;
    tags.coverPath = device_test::CoverJpeg();
    device_test::MakeMp3(Stick1() + "/cover.mp3", 4.0, tags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getTrackAlbumArt");
        ASSERT_EQ(reply["result"], true) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackAlbumArtNotification", kWireTimeoutMs));
    EXPECT_EQ(notification["params"]["artFilePath"].asString(), "") << notification.toStyledString();
    ::chmod(ArtDirectory().c_str(), 0700);
}

TEST_F(FaultTest, SigtermDuringPlaybackExitsCleanlyAndQuickly)
{
    PlaceSong(Stick1() + "/a.mp3", 5);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlayingFile("a.mp3"));
    double seconds = 0;
    const int status = m_daemon->Stop(SIGTERM, kWireTimeoutMs, &seconds);
    std::printf("SIGTERM during playback: status %d after %.2f s\n", status, seconds);
    EXPECT_EQ(status, 0) << m_daemon->Output();
    EXPECT_LT(seconds, kStopSeconds);
    m_daemon.reset();
}

TEST_F(FaultTest, SigtermDuringScanExitsCleanly)
{
    MountTree(HugeTree());
    StartDaemon();
    SubfolderOpenWatch scan(HugeTree());
    ASSERT_TRUE(scan.Watching());
    ASSERT_TRUE(m_client.SendRaw(
        R"({"jsonrpc":"2.0","method":"indexUsbStorage","id":1,"params":{"usbStoragePath":")" + Stick1() + R"("}})"));
    EXPECT_TRUE(scan.Wait(kWireTimeoutMs)) << "the scan opened no folder of the stick";
    double seconds = 0;
    const int status = m_daemon->Stop(SIGTERM, kWireTimeoutMs, &seconds);
    std::string line;
    const bool answered = m_client.ReadLine(line, 0);
    std::printf("SIGTERM during a scan of 200000 entries: status %d after %.2f s, scan %s\n", status, seconds,
                answered ? "answered first" : "not answered");
    EXPECT_EQ(status, 0) << m_daemon->Output();
    // The scan runs on the listener thread, which the shutdown waits for.
    EXPECT_LT(seconds, 20.0);
    m_daemon.reset();
}
