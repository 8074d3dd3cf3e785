// The tag library's scans through the running daemon: what they announce and
// how often, a re-plug that reads nothing, the database after a kill, a pull,
// a soft power-off, unreadable and failing sticks, and the database files
// kept per stick.

#include "tests/integration/FaultStick.h"
#include "tests/integration/TagLibraryFixture.h"

#include "tests/support/TagCorpus.h"
#include "tests/support/TempDir.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

using device_test::SecondsSince;
using stick_test::FaultStick;
using tag_library_test::IntegrityCheck;
using tag_library_test::MakeTaggedCopies;
using tag_library_test::SScanNotice;
using tag_library_test::TagLibraryTest;
using tag_library_test::Texts;
using tag_library_test::Compact;
using testing_support::kWireTimeoutMs;

namespace {

using Clock = std::chrono::steady_clock;
using Names = std::vector<std::string>;

// A stick large enough that its first scan is still under way when a
// progress report has come (the first half a second after its start): some
// seconds on an idle machine, longer on a busy one.
constexpr int kLargeStick = 20000;
constexpr int kPerFolder = 100;

class LibraryScanTest : public TagLibraryTest {
protected:
    // Waits for a report of a scan under way that has handled a file;
    // false (with what came) when the scan ended first.
    bool WaitForProgress(std::vector<SScanNotice>& seen)
    {
        Json::Value notification;
        while (NextNotification(notification, "libraryScanNotification", kWireTimeoutMs)) {
            const Json::Value& status = notification["params"];
            seen.push_back({status, Clock::now()});
            if (status["state"] != "scanning") {
                return false;
            }
            if (status["scanned"].asUInt() > 0) {
                return true;
            }
        }
        return false;
    }

    static std::string Reports(const std::vector<SScanNotice>& seen)
    {
        std::string text;
        for (const SScanNotice& notice : seen) {
            text += Compact(notice.status) + "\n";
        }
        return text;
    }

    // The end of the scan under way: its first report that is not "scanning".
    Json::Value WaitForEnd()
    {
        Json::Value notification;
        while (NextNotification(notification, "libraryScanNotification", kWireTimeoutMs)) {
            if (notification["params"]["state"] != "scanning") {
                return notification["params"];
            }
        }
        return Json::Value();
    }

    Json::Value PowerOff(bool off)
    {
        Json::Value params;
        params["softPowerOff"] = off;
        return Call("setSoftPowerOff", params);
    }
};

// Overwrites the file with as many other bytes, keeping its modification time.
void ReplaceContentKeepingTimes(const std::string& path)
{
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0) << path;
    testing_support::WriteFile(path, std::string(static_cast<size_t>(before.st_size), '\x5a'));
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

}  // namespace

TEST_F(LibraryScanTest, AScanAnnouncesScanningThenReadyWithItsCountsAtMostTwiceASecond)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), kLargeStick, kPerFolder));
    StartLibraryDaemon();
    EXPECT_EQ(Compact(Status()), R"({"albums":0,"artists":0,"genres":0,"scanned":0,"state":"idle",)"
                                  R"("total":0,"tracks":0})");
    const auto start = Clock::now();
    {
        const Json::Value reply = Plug("usb1");
        ASSERT_FALSE(reply.isNull()) << "no reply to the plug event";
    }
    std::vector<SScanNotice> seen;
    const Json::Value ready = WaitForScan("ready", &seen);
    ASSERT_FALSE(ready.isNull()) << Reports(seen) << Compact(Status());
    EXPECT_EQ(Compact(ready), R"({"albums":200,"artists":7,"genres":1,"scanned":20000,"state":"ready",)"
                               R"("total":20000,"tracks":20000})");
    EXPECT_EQ(Compact(Status()), Compact(ready));
    ASSERT_GE(seen.size(), 2u);
    EXPECT_EQ(Compact(seen.front().status), R"({"albums":0,"artists":0,"genres":0,"scanned":0,)"
                                             R"("state":"scanning","total":0,"tracks":0})");
    // Between the first and the last report, one at most every half second:
    // counted over the whole scan, as reports read late arrive together.
    const double seconds = std::chrono::duration<double>(seen.back().arrival - seen.front().arrival).count();
    const size_t between = seen.size() - 2;
    std::printf("scan of %d files: %.2f s from the plug, %zu progress reports over %.2f s\n", kLargeStick, SecondsSince(start),
                between, seconds);
    EXPECT_LE(static_cast<double>(between), 2 * seconds + 1) << Reports(seen);
    for (size_t i = 1; i + 1 < seen.size(); ++i) {
        EXPECT_EQ(seen[i].status["state"], "scanning") << Reports(seen);
        EXPECT_GE(seen[i].status["scanned"].asUInt(), seen[i - 1].status["scanned"].asUInt()) << Reports(seen);
    }
    // No report after the end.
    EXPECT_TRUE(NoNotification("libraryScanNotification", 1000));
}

TEST_F(LibraryScanTest, ASecondIndexOfAnUnchangedStickReadsNoFile)
{
    ASSERT_NO_FATAL_FAILURE(testing_support::MakeTaggedFiles(Stick1(), testing_support::Corpus()));
    StartLibraryDaemon();
    const Json::Value first = IndexStickAndWaitUntilReady();
    ASSERT_EQ(first["tracks"], 11) << first.toStyledString();
    const Json::Value titles = All("getTracksUSB");

    // Reading any file now would find no tag: it would be titled by its name.
    for (const std::string& path : testing_support::AudioFilesBelow(Stick1())) {
        ASSERT_NO_FATAL_FAILURE(ReplaceContentKeepingTimes(path));
    }
    const Json::Value second = IndexStickAndWaitUntilReady();
    EXPECT_EQ(Compact(second), Compact(first));
    const Json::Value again = All("getTracksUSB");
    EXPECT_EQ(Compact(again), Compact(titles));
    EXPECT_EQ(tag_library_test::EntryNamed(again, "name", "03.mp3")["title"], "Aube") << again.toStyledString();
}

// A stick known by its UUID has its stored files stat'ed while the plug's
// walk goes on: the unchanged ones are not read again, a changed one is.
TEST_F(LibraryScanTest, APlugAgainOfAStickKnownByItsUuidReadsOnlyWhatChanged)
{
    ASSERT_NO_FATAL_FAILURE(testing_support::MakeTaggedFiles(Stick1(), testing_support::Corpus()));
    StartLibraryDaemon();
    Plug("usb1", "5678-EFAB");
    const Json::Value first = WaitForScan("ready");
    ASSERT_EQ(first["tracks"], 11) << Compact(Status());
    const Json::Value titles = All("getTracksUSB");
    Unplug("usb1");

    // Reading any of these now would find no tag: it would be titled by its name.
    for (const std::string& path : testing_support::AudioFilesBelow(Stick1())) {
        ASSERT_NO_FATAL_FAILURE(ReplaceContentKeepingTimes(path));
    }
    // This one changes size: it is read again.
    const std::string changed = Stick1() + "/Two/queen.mp3";
    testing_support::WriteFile(changed, std::string(5000, '\x5a'));
    Plug("usb1", "5678-EFAB");
    const Json::Value second = WaitForScan("ready");
    ASSERT_FALSE(second.isNull()) << Compact(Status());
    EXPECT_EQ(second["tracks"], 11) << Compact(second);
    const Json::Value again = All("getTracksUSB");
    EXPECT_EQ(tag_library_test::EntryNamed(again, "name", "03.mp3")["title"], "Aube") << again.toStyledString();
    EXPECT_EQ(tag_library_test::EntryNamed(again, "name", "queen.mp3")["title"], "queen.mp3")
        << again.toStyledString();
    EXPECT_EQ(again.size(), titles.size());
}

TEST_F(LibraryScanTest, AKillMidScanLeavesASoundDatabaseAndTheNextScanCompletesIt)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), kLargeStick, kPerFolder));
    StartLibraryDaemon();
    {
        const Json::Value reply = Plug("usb1", "4321-DCBA");
        ASSERT_FALSE(reply.isNull()) << "no reply to the plug event";
    }
    std::vector<SScanNotice> seen;
    ASSERT_TRUE(WaitForProgress(seen)) << "the scan ended before a progress report:\n" << Reports(seen);
    std::printf("killed at %s\n", Compact(seen.back().status).c_str());
    EXPECT_EQ(m_daemon->Stop(SIGKILL, kWireTimeoutMs), 128 + SIGKILL);
    m_client.Close();

    const std::string database = StateFolder() + "/tags-uuid-4321-DCBA.sqlite";
    ASSERT_EQ(DatabaseFiles(), (Names{"tags-uuid-4321-DCBA.sqlite"}));
    EXPECT_EQ(IntegrityCheck(database), "ok");

    StartLibraryDaemon();
    {
        const Json::Value reply = Plug("usb1", "4321-DCBA");
        ASSERT_FALSE(reply.isNull()) << "no reply to the plug event";
    }
    const Json::Value ready = WaitForScan("ready");
    ASSERT_FALSE(ready.isNull()) << Compact(Status());
    EXPECT_EQ(ready["tracks"], kLargeStick) << ready.toStyledString();
    EXPECT_EQ(ready["albums"], kLargeStick / kPerFolder) << ready.toStyledString();
    EXPECT_EQ(Page("getTracksUSB", 0, 1)["totalCount"], kLargeStick);
    EXPECT_EQ(IntegrityCheck(database), "ok");
}

TEST_F(LibraryScanTest, AStickPulledMidScanLeavesAnIdleEmptyLibraryAtOnce)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), kLargeStick, kPerFolder));
    StartLibraryDaemon();
    Plug("usb1");
    std::vector<SScanNotice> seen;
    ASSERT_TRUE(WaitForProgress(seen)) << "the scan ended before a progress report:\n" << Reports(seen);

    // The reply comes once the scan has stopped: the very next status is idle.
    const auto pulled = Clock::now();
    {
        const Json::Value reply = Unplug("usb1");
        ASSERT_FALSE(reply.isNull()) << "no reply to the pull event";
    }
    const double replySeconds = SecondsSince(pulled);
    EXPECT_EQ(Compact(Status()), R"({"albums":0,"artists":0,"genres":0,"scanned":0,"state":"idle",)"
                                  R"("total":0,"tracks":0})");
    std::printf("pulled at %s: reply after %.3f s\n", Compact(seen.back().status).c_str(), replySeconds);
    EXPECT_EQ(Compact(Page("getArtistsUSB", 0, 10)), R"({"currIndex":0,"entries":[],"totalCount":0})");
    EXPECT_EQ(Compact(Page("getTracksUSB", 0, 10)), R"({"currIndex":0,"entries":[],"totalCount":0})");
    const Json::Value end = WaitForEnd();
    EXPECT_EQ(end["state"], "idle") << end.toStyledString();
    EXPECT_TRUE(NoNotification("libraryScanNotification", 1000));
}

TEST_F(LibraryScanTest, SoftPowerOffStopsAScanAndPowerOnResumesIt)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), kLargeStick, kPerFolder));
    StartLibraryDaemon();
    Plug("usb1");
    std::vector<SScanNotice> seen;
    ASSERT_TRUE(WaitForProgress(seen)) << "the scan ended before a progress report:\n" << Reports(seen);
    {
        const Json::Value reply = PowerOff(true);
        ASSERT_TRUE(reply.isMember("result")) << reply.toStyledString();
    }
    const Json::Value off = Status();
    EXPECT_EQ(off["state"], "idle") << off.toStyledString();
    const Json::Value end = WaitForEnd();
    EXPECT_EQ(end["state"], "idle") << end.toStyledString();

    {
        const Json::Value reply = PowerOff(false);
        ASSERT_TRUE(reply.isMember("result")) << reply.toStyledString();
    }
    const Json::Value ready = WaitForScan("ready");
    ASSERT_FALSE(ready.isNull()) << Compact(Status());
    EXPECT_EQ(ready["tracks"], kLargeStick) << ready.toStyledString();
}

TEST_F(LibraryScanTest, TwentyUnreadableFilesInARowFailTheScan)
{
    for (int i = 0; i < 25; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "a/c%02d.mp3", i);
        // No frame sync anywhere: no reader takes it for audio.
        testing_support::WriteFile(Stick1() + "/" + name, std::string(4096, '\x5a'));
    }
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1() + "/b", 3, 3));
    StartLibraryDaemon();
    ASSERT_TRUE(Index(Stick1())["result"]["success"].asBool());
    const Json::Value end = WaitForEnd();
    EXPECT_EQ(end["state"], "failed") << end.toStyledString();
    EXPECT_EQ(Status()["state"], "failed");
    EXPECT_EQ(Call("ping")["result"], true);
}

TEST_F(LibraryScanTest, AStickWhoseReadsFailIsNoCrash)
{
    testing_support::MemoryTempDir source("usbmedia-tags");
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(source.Path(), 30, 30));
    FaultStick stick(source.Path(), Stick1());
    if (!stick.Mounted()) {
        GTEST_SKIP() << stick.Why();
    }
    for (int i = 0; i < 30; ++i) {
        char path[32];
        std::snprintf(path, sizeof path, "f000/t%05d.mp3", i);
        ASSERT_TRUE(stick.Command(std::string("fail-read ") + path + " 0")) << path;
    }
    StartLibraryDaemon();
    ASSERT_TRUE(Index(Stick1())["result"]["success"].asBool());
    const Json::Value end = WaitForEnd();
    ASSERT_FALSE(end.isNull()) << Compact(Status());
    if (end["state"] == "ready") {
        // Kept, each titled by its file name.
        const Json::Value tracks = All("getTracksUSB");
        for (const Json::Value& track : tracks["entries"]) {
            EXPECT_EQ(track["title"], track["name"]) << tracks.toStyledString();
        }
    } else {
        EXPECT_EQ(end["state"], "failed") << end.toStyledString();
    }
    std::printf("every read failing: %s\n", Compact(end).c_str());
    EXPECT_EQ(Call("ping")["result"], true);
    EXPECT_TRUE(m_daemon->IsRunning());
}

TEST_F(LibraryScanTest, TheFileSystemUuidNamesTheDatabase)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), 2, 2));
    StartLibraryDaemon();
    Plug("usb1", "1234-ABCD");
    const Json::Value ready = WaitForScan("ready");
    ASSERT_FALSE(ready.isNull()) << Compact(Status());
    EXPECT_EQ(DatabaseFiles(), (Names{"tags-uuid-1234-ABCD.sqlite"}));

    // Without one, the storage checksum names it.
    Unplug("usb1");
    Plug("usb1");
    ASSERT_FALSE(WaitForScan("ready").isNull()) << Compact(Status());
    const Names databases = DatabaseFiles();
    ASSERT_EQ(databases.size(), 2u);
    EXPECT_EQ(databases[0].rfind("tags-crc-", 0), 0u) << databases[0];
}

TEST_F(LibraryScanTest, OnlyTheEightSticksUsedLastKeepTheirDatabases)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), 2, 2));
    StartLibraryDaemon();
    Names expected;
    for (int stick = 1; stick <= 9; ++stick) {
        const std::string uuid = "0000-000" + std::to_string(stick);
        Plug("usb1", uuid);
        ASSERT_FALSE(WaitForScan("ready").isNull()) << uuid << ": " << Compact(Status());
        Unplug("usb1");
        if (stick > 1) {
            expected.push_back("tags-uuid-" + uuid + ".sqlite");
        }
    }
    EXPECT_EQ(DatabaseFiles(), expected);
}

TEST_F(LibraryScanTest, AClientThatNeverAskedTheLibraryHearsNoneOfItsScans)
{
    ASSERT_NO_FATAL_FAILURE(MakeTaggedCopies(Stick1(), 20, 10));
    StartLibraryDaemon();
    testing_support::RpcClient other;
    ASSERT_TRUE(other.Connect(m_daemon->Port()));
    ASSERT_FALSE(other.Call("ping").isNull());
    ASSERT_FALSE(IndexStickAndWaitUntilReady().isNull());
    // The end of the scan was queued for this fixture's client before the
    // ping below is answered; the other client's stream holds no scan at all.
    ASSERT_FALSE(other.Call("ping").isNull());
    Json::Value notification;
    EXPECT_FALSE(other.NextNotification(notification, "libraryScanNotification", 500))
        << notification.toStyledString();
}
