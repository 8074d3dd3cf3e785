// usb-media-ctl against the real daemon over real TCP: every verb, its
// output, its exit status, and watch as a long-running child.

#include "core/PosixHandles.h"
#include "control/rpc/JsonStreamFramer.h"
#include "tests/integration/CliProcess.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/RpcClient.h"
#include "tests/support/PlayerStates.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireFixture.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <arpa/inet.h>
#include <fnmatch.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

using cli_test::CliProcess;
using testing_support::DaemonProcess;
using testing_support::HeldPort;
using testing_support::MediaFactory;
using testing_support::RpcClient;
using testing_support::TempDir;
using testing_support::kFastForward;
using testing_support::kPaused;
using testing_support::kPlaying;
using testing_support::kRewind;
using testing_support::kStopped;
using testing_support::kWireTimeoutMs;

namespace {
constexpr double kSongSeconds = 6.0;
constexpr double kShortSongSeconds = 2.0;

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// The listing with every entry's ID replaced by "ID", so it can be compared
// as text: "  2189816948  Jazz/" becomes "ID  Jazz/".
std::string WithoutIds(const std::string& listing)
{
    std::istringstream lines(listing);
    std::string result;
    std::string line;
    while (std::getline(lines, line)) {
        const size_t digits = line.find_first_not_of(' ');
        const size_t end = line.find_first_not_of("0123456789", digits);
        const bool isEntry = digits != std::string::npos && end != digits && end != std::string::npos &&
                             line.compare(end, 2, "  ") == 0;
        result += (isEntry ? "ID" + line.substr(end) : line) + "\n";
    }
    return result;
}

bool Exists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// A JPEG cover, put into an MP3's ID3 tag with Debian's mutagen.
std::string WithCover(const std::string& mp3, const std::string& destination)
{
    const std::string cover = MediaFactory::Launch(
        "cli-cover.jpg", {"videotestsrc", "num-buffers=1", "!", "video/x-raw,width=32,height=24", "!", "jpegenc",
                          "!", "filesink"});
    MediaFactory::Place(mp3, destination + ".tmp", true);  // a private copy: mutagen rewrites it
    const char* script = "import sys\n"
                         "from mutagen.id3 import ID3, APIC\n"
                         "tags = ID3(sys.argv[1])\n"
                         "tags.add(APIC(encoding=3, mime='image/jpeg', type=3, desc='Cover',\n"
                         "              data=open(sys.argv[2], 'rb').read()))\n"
                         "tags.save(sys.argv[1])\n";
    const pid_t pid = fork();
    if (pid == 0) {
        testing_support::DaemonProcess::ForgetEmulatorEnvironment();
        execl("/usr/bin/python3", "python3", "-c", script, (destination + ".tmp").c_str(), cover.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
        rename((destination + ".tmp").c_str(), destination.c_str()) != 0) {
        throw std::runtime_error("cannot add a cover to " + destination);
    }
    return destination;
}

// The stick every test uses (the daemon lists folders first, by name):
//   Covers/cover.mp3 (with a JPEG cover)
//   Jazz/a-blue.mp3, Jazz/b-night.mp3, Jazz/c-rain.wav
//   Rock/Live/encore.wav
//   Welcome.mp3 (short)
// Browsing needs only the names, so tests that play nothing get empty files
// of the same names, which is much quicker than encoding.
class StickTree {
public:
    explicit StickTree(bool realMedia)
    {
        const std::string stick = Stick();
        Put(realMedia ? MediaFactory::Mp3(kSongSeconds, "Blue Hour", "The Demo Trio", "Late Set") : "",
            stick + "/Jazz/a-blue.mp3");
        Put(realMedia ? MediaFactory::Mp3(kSongSeconds, "Night Walk", "The Demo Trio", "Late Set") : "",
            stick + "/Jazz/b-night.mp3");
        Put(realMedia ? MediaFactory::Wav(kSongSeconds) : "", stick + "/Jazz/c-rain.wav");
        Put(realMedia ? MediaFactory::Wav(kShortSongSeconds) : "", stick + "/Rock/Live/encore.wav");
        Put(realMedia ? MediaFactory::Mp3(kShortSongSeconds, "Welcome", "USB Media", "Demo") : "",
            stick + "/Welcome.mp3");
        testing_support::MakeDirs(stick + "/Covers");
        if (realMedia) {
            WithCover(MediaFactory::Mp3(kSongSeconds, "Cover Song", "Painter", "Gallery"), stick + "/Covers/cover.mp3");
        } else {
            Put("", stick + "/Covers/cover.mp3");
        }
        testing_support::MakeDirs(m_root / "mnt/usb-stick2");
        testing_support::MakeDirs(m_root / "home/root");
    }

    std::string Root() const { return m_root.Path(); }
    std::string Stick() const { return m_root / "mnt/usb-stick1"; }

private:
    // Places a made file, or an empty one when `source` is empty.
    static void Put(const std::string& source, const std::string& destination)
    {
        if (source.empty()) {
            testing_support::WriteFile(destination, "");
        } else {
            MediaFactory::Place(source, destination);
        }
    }

    TempDir m_root;
};

// One stick of each kind per test process, made on first use.
const StickTree& Tree(bool realMedia)
{
    if (realMedia) {
        static const StickTree media(true);
        return media;
    }
    static const StickTree names(false);
    return names;
}

// The daemon on a stick of empty files named like media: for everything
// that browses, indexes or sends requests without playing.
class CliTest : public testing::Test {
protected:
    // Whether the stick holds real, playable media.
    virtual bool RealMedia() const { return false; }

    void SetUp() override
    {
        DaemonProcess::Options options;
        options.environment["USBMEDIA_ROOT"] = Root();
        m_daemon = std::make_unique<DaemonProcess>(options);
        // A client that stays connected: the service plays only while one is.
        ASSERT_TRUE(listener.Connect(m_daemon->Port()));
    }

    void TearDown() override
    {
        if (m_daemon && !m_stopped) {
            StopDaemon();
        }
    }

    void StopDaemon()
    {
        m_stopped = true;
        EXPECT_EQ(m_daemon->Stop(SIGTERM, kWireTimeoutMs), 0) << m_daemon->Output();
    }

    virtual std::string Root() const { return Tree(RealMedia()).Root(); }
    std::string Stick() const { return Root() + "/mnt/usb-stick1"; }
    DaemonProcess& Daemon() { return *m_daemon; }

    CliProcess::Options CliOptions(const std::vector<std::string>& arguments) const
    {
        CliProcess::Options options;
        options.arguments = arguments;
        options.environment["USBMEDIA_PORT"] = std::to_string(m_daemon->Port());
        options.environment["USBMEDIA_ROOT"] = Root();
        return options;
    }

    CliProcess::Result Cli(const std::vector<std::string>& arguments)
    {
        return CliProcess::Run(CliOptions(arguments), kWireTimeoutMs);
    }

    // Runs the client and expects exit status 0.
    std::string CliOk(const std::vector<std::string>& arguments)
    {
        const CliProcess::Result result = Cli(arguments);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    Json::Value Call(const std::string& method, const Json::Value& params = Json::Value())
    {
        return testing_support::Call(listener, method, params);
    }

    void IndexStick()
    {
        const Json::Value reply = testing_support::Index(listener, Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }

    // Plays the Jazz folder and waits for its first track's tags.
    void StartJazz()
    {
        {
            const Json::Value reply = testing_support::PlayFolder(listener, Stick(), "Jazz");
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        ASSERT_TRUE(WaitForState(kPlaying));
        ASSERT_EQ(NextTrackTitle(), "Blue Hour");
    }

    // The service notifies the clients it has taken in, and a watch that
    // has printed "watching" may not be among them yet. Changes the repeat
    // mode to none (on a connection of its own) until the watch shows it,
    // so that whatever the test changes next reaches the watch.
    bool WaitUntilWatchHears(CliProcess& watch, const std::string& shown = "repeat: none")
    {
        Json::Value params;
        params["mode"] = 0;
        RpcClient probe;
        if (!probe.Connect(Daemon().Port())) {
            return false;
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWireTimeoutMs);
        while (std::chrono::steady_clock::now() < deadline) {
            probe.Call("setRepeatModeUSB", params, kWireTimeoutMs);
            // A short wait per round: a missed change is simply made again.
            if (watch.WaitForOutput(shown, 250)) {
                return true;
            }
        }
        return false;
    }

    // The watch's output after the probe lines of WaitUntilWatchHears.
    static std::string AfterProbes(const std::string& out, const std::string& probeLine = "repeat: none\n")
    {
        size_t start = 0;
        while (out.compare(start, probeLine.size(), probeLine) == 0) {
            start += probeLine.size();
        }
        return out.substr(start);
    }

    bool WaitForState(int state) { return testing_support::WaitForState(listener, state); }

    std::string NextTrackTitle()
    {
        Json::Value notification;
        if (!listener.NextNotification(notification, "trackInfoNotification", kWireTimeoutMs)) {
            return "<no trackInfoNotification>";
        }
        return notification["params"]["trackInfo"]["trackTitle"].asString();
    }

    // The first trackTimeNotification whose time is at least `seconds`.
    bool WaitForTime(unsigned seconds, unsigned* seen = nullptr)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWireTimeoutMs);
        Json::Value notification;
        while (listener.NextNotification(notification, "trackTimeNotification", Remaining(deadline))) {
            const unsigned time = notification["params"]["trackTime"].asUInt();
            if (time >= seconds) {
                if (seen != nullptr) {
                    *seen = time;
                }
                return true;
            }
        }
        return false;
    }

    int PlayerState() { return Call("getCurrentPlayerState")["result"]["playerState"].asInt(); }

    static int Remaining(std::chrono::steady_clock::time_point deadline)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        return left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }

    // The ID that ls shows before "  NAME" (folders end in "/").
    static std::string IdOf(const std::string& listing, const std::string& name)
    {
        std::istringstream lines(listing);
        std::string line;
        while (std::getline(lines, line)) {
            const size_t at = line.rfind("  " + name);
            if (at != std::string::npos && at + 2 + name.size() == line.size()) {
                return line.substr(line.find_first_not_of(' '), at - line.find_first_not_of(' '));
            }
        }
        return "<" + name + " not listed>";
    }

    RpcClient listener;

private:
    std::unique_ptr<DaemonProcess> m_daemon;
    bool m_stopped = false;
};

// The same with real media, for everything that plays.
class CliPlaybackTest : public CliTest {
protected:
    bool RealMedia() const override { return true; }
};
}  // namespace

// --- call ------------------------------------------------------------------

TEST_F(CliTest, CallPrintsTheReplyIndented)
{
    EXPECT_EQ(CliOk({"call", "ping"}), "{\n  \"id\": 1,\n  \"jsonrpc\": \"2.0\",\n  \"result\": true\n}\n");
}

TEST_F(CliTest, CallWithJsonPrintsTheReplyAsReceived)
{
    EXPECT_EQ(CliOk({"--json", "call", "ping"}), "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":true}\n");
    EXPECT_EQ(CliOk({"call", "print", "--json"}), "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":\"success\"}\n");
}

TEST_F(CliTest, CallSendsParams)
{
    EXPECT_EQ(CliOk({"call", "setRepeatModeUSB", R"({"mode":2})", "--json"}),
              "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"mode\":2}}\n");
    {
        const Json::Value reply = Call("getRepeatModeUSB");
        EXPECT_EQ(reply["result"]["mode"], 2) << reply.toStyledString();
    }
}

TEST_F(CliTest, CallOfAMethodWithoutReplyPrintsNothing)
{
    const CliProcess::Result result = Cli({"call", "notify"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(Contains(result.err, "\"notify\" sent no reply")) << result.err;
}

TEST_F(CliTest, CallOfAnUnknownMethodFails)
{
    const CliProcess::Result result = Cli({"call", "noSuchMethod"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.out, "\"message\": \"Method not found\"")) << result.out;
    EXPECT_EQ(result.err, "usb-media-ctl: Method not found (code -32601)\n");
}

TEST_F(CliTest, CallWhoseReplyCarriesAnErrorFails)
{
    const CliProcess::Result result = Cli({"call", "playUSB", "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "{\"error\":{\"code\":-1,\"message\":\"E: No Song to play!\"},\"id\":1,"
                          "\"jsonrpc\":\"2.0\",\"result\":{\"success\":false}}\n");
    EXPECT_EQ(result.err, "usb-media-ctl: E: No Song to play! (code -1)\n");
}

// --- connection ------------------------------------------------------------

TEST_F(CliTest, NoServiceIsAConnectionError)
{
    const HeldPort nothingListens;  // no other test's daemon can get it meanwhile
    const int port = nothingListens.Port();
    const CliProcess::Result result = Cli({"--port", std::to_string(port), "status"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "cannot connect to 127.0.0.1:" + std::to_string(port))) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(CliTest, PortOptionOverridesTheEnvironment)
{
    CliProcess::Options options = CliOptions({"--port", std::to_string(Daemon().Port()), "call", "ping", "--json"});
    const HeldPort nothingListens;
    options.environment["USBMEDIA_PORT"] = std::to_string(nothingListens.Port());
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":true}\n");
}

TEST_F(CliTest, HostOption)
{
    EXPECT_EQ(CliOk({"--host", "localhost", "--json", "call", "ping"}).substr(0, 6), "{\"id\":");
    const CliProcess::Result result = Cli({"--host", "no-such-host.invalid", "status"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "no-such-host.invalid")) << result.err;
}

// --- status ----------------------------------------------------------------

TEST_F(CliTest, StatusWithNothingLoaded)
{
    const std::string out = CliOk({"status"});
    EXPECT_TRUE(Contains(out, "track:    none\n")) << out;
    EXPECT_TRUE(Contains(out, "time:     0:00 / 0:00\n")) << out;
    EXPECT_TRUE(Contains(out, "repeat:   none\n")) << out;
    EXPECT_TRUE(Contains(out, "shuffle:  off\n")) << out;
    EXPECT_TRUE(Contains(out, "usb1:     connected\n")) << out;
}

TEST_F(CliPlaybackTest, StatusWhilePlaying)
{
    StartJazz();
    ASSERT_TRUE(WaitForTime(1));
    const std::string out = CliOk({"status"});
    EXPECT_TRUE(Contains(out, "state:    playing\n")) << out;
    EXPECT_TRUE(Contains(out, "track:    1 of 3\n")) << out;
    EXPECT_TRUE(Contains(out, "title:    Blue Hour\n")) << out;
    EXPECT_TRUE(Contains(out, "artist:   The Demo Trio\n")) << out;
    EXPECT_TRUE(Contains(out, "album:    Late Set\n")) << out;
    const size_t time = out.find("time:     0:0");
    ASSERT_NE(time, std::string::npos) << out;
    EXPECT_GE(out[time + 13], '1') << out;
    EXPECT_EQ(out.substr(time + 14, 6), " / 0:0") << out;
    EXPECT_TRUE(Contains(out, "file:     " + Stick() + "/Jazz/a-blue.mp3\n")) << out;
}

TEST_F(CliTest, StatusWithJsonPrintsEveryReply)
{
    const std::string out = CliOk({"status", "--json"});
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 5) << out;
    EXPECT_TRUE(Contains(out, "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"playerState\":")) << out;
    EXPECT_TRUE(Contains(out, "{\"id\":5,\"jsonrpc\":\"2.0\",\"result\":{\"connected\":true,\"errorCode\":\"\"}}\n"))
        << out;
}

// --- ls, index, crc --------------------------------------------------------

TEST_F(CliTest, ListBeforeIndexingFails)
{
    const CliProcess::Result result = Cli({"ls"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.err, "usb-media-ctl: E: No Items In This Group! (code -10)\n")) << result.err;
    EXPECT_TRUE(Contains(result.err, "usb-media-ctl index")) << result.err;
}

TEST_F(CliTest, IndexThenListTheStickRoot)
{
    EXPECT_EQ(CliOk({"index"}), "indexed " + Stick() + "\n");
    const std::string out = CliOk({"ls"});
    EXPECT_EQ(WithoutIds(out), Stick() + "\n"
                                         "ID  Covers/\n"
                                         "ID  Jazz/\n"
                                         "ID  Rock/\n"
                                         "ID  Welcome.mp3\n"
                                         "entries 1-4 of 4 (page 1 of 1)\n");
}

TEST_F(CliTest, IndexOfABuiltInPathGetsTheRoot)
{
    EXPECT_EQ(CliOk({"index", "/mnt/usb-stick1"}), "indexed " + Stick() + "\n");
}

TEST_F(CliTest, IndexOfAMissingFolderFails)
{
    const CliProcess::Result result = Cli({"index", "/mnt/usb-stick9"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.err, "E: While opendir")) << result.err;
    EXPECT_TRUE(Contains(result.err, "(code -1)")) << result.err;
}

TEST_F(CliTest, ListPageByPage)
{
    IndexStick();
    const std::string second = CliOk({"ls", "--page-size", "2", "--page", "2"});
    EXPECT_EQ(WithoutIds(second), Stick() + "\nID  Rock/\nID  Welcome.mp3\nentries 3-4 of 4 (page 2 of 2)\n");
    const std::string first = CliOk({"ls", "--page-size=3"});
    EXPECT_TRUE(Contains(first, "entries 1-3 of 4 (page 1 of 2)\n")) << first;
}

TEST_F(CliTest, ListPastTheLastPageFails)
{
    IndexStick();
    const CliProcess::Result result = Cli({"ls", "--page-size", "2", "--page", "3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "usb-media-ctl: page 3 is past the end: 4 entries make 2 page(s)\n");
}

TEST_F(CliTest, ListAFolderByBuiltInPath)
{
    IndexStick();
    const std::string out = CliOk({"ls", "/mnt/usb-stick1/Jazz/"});
    EXPECT_EQ(WithoutIds(out), Stick() + "/Jazz\nID  a-blue.mp3\nID  b-night.mp3\nID  c-rain.wav\n"
                                         "entries 1-3 of 3 (page 1 of 1)\n");
}

TEST_F(CliTest, ListAFolderByRelativePath)
{
    IndexStick();
    CliProcess::Options options = CliOptions({"ls", "Rock"});
    options.workingDirectory = Stick();
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "  Live/\n")) << result.out;
}

TEST_F(CliTest, ListAGroupByTheIdThatLsShows)
{
    IndexStick();
    const std::string jazz = IdOf(CliOk({"ls"}), "Jazz/");
    const std::string out = CliOk({"ls", "--group", jazz});
    EXPECT_TRUE(Contains(out, Stick() + "/Jazz\n")) << out;
    EXPECT_TRUE(Contains(out, "  b-night.mp3\n")) << out;
    EXPECT_TRUE(Contains(out, "entries 1-3 of 3 (page 1 of 1)\n")) << out;
    EXPECT_TRUE(Contains(CliOk({"ls", "--group", "0"}), "  Welcome.mp3\n"));
}

TEST_F(CliTest, ListWithJsonPrintsTheReply)
{
    IndexStick();
    const std::string out = CliOk({"ls", "--json", "--page-size", "1"});
    const std::string start = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"currIndex\":0,\"filelist\":[{\"ID\":";
    EXPECT_EQ(out.substr(0, start.size()), start);
    EXPECT_TRUE(Contains(out, "\"isFolder\":true,\"name\":\"Covers\",\"path\":\"" + Stick() + "\"}],\"totalCount\":4}}\n"))
        << out;
}

TEST_F(CliTest, CrcBeforeAndAfterIndexing)
{
    EXPECT_EQ(CliOk({"crc"}), "0\n");
    IndexStick();
    const std::string crc = Call("getUsbStorageCrc32")["result"]["crc32"].asString();
    EXPECT_NE(crc, "0");
    EXPECT_EQ(CliOk({"crc"}), crc + "\n");
}

// --- play ------------------------------------------------------------------

TEST_F(CliPlaybackTest, PlayAFolder)
{
    EXPECT_EQ(CliOk({"play", "/mnt/usb-stick1/Jazz"}), "playing " + Stick() + "/Jazz\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "Blue Hour");
}

TEST_F(CliPlaybackTest, PlayAFile)
{
    IndexStick();
    EXPECT_EQ(CliOk({"play", Stick() + "/Jazz/b-night.mp3"}), "playing " + Stick() + "/Jazz/b-night.mp3\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "Night Walk");
}

TEST_F(CliPlaybackTest, PlayARelativePath)
{
    IndexStick();
    CliProcess::Options options = CliOptions({"play", "b-night.mp3"});
    options.workingDirectory = Stick() + "/Jazz";
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(NextTrackTitle(), "Night Walk");
}

TEST_F(CliTest, PlayAMissingPathIsAUsageError)
{
    const CliProcess::Result result = Cli({"play", "/mnt/usb-stick1/Jazz/none.mp3"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "cannot play " + Stick() + "/Jazz/none.mp3: No such file or directory"))
        << result.err;
}

TEST_F(CliPlaybackTest, PlayAll)
{
    IndexStick();
    EXPECT_EQ(CliOk({"play-all"}), "playing from the first folder of the index of " + Stick() + "\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "Cover Song");  // the first folder, played with its subfolders
}

TEST_F(CliTest, PlayAllWithoutIndexFails)
{
    const CliProcess::Result result = Cli({"play-all", "/mnt/usb-stick1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "usb-media-ctl: E: No Songs on USB! (code -6)\n");
}

TEST_F(CliPlaybackTest, PlayIndexOfAnIdThatLsShows)
{
    IndexStick();
    const std::string welcome = IdOf(CliOk({"ls"}), "Welcome.mp3");
    EXPECT_EQ(CliOk({"play-index", welcome}), "playing entry " + welcome + "\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "Welcome");
}

// --- transport -------------------------------------------------------------

TEST_F(CliPlaybackTest, PauseAndResume)
{
    StartJazz();
    EXPECT_EQ(CliOk({"pause"}), "paused\n");
    EXPECT_TRUE(WaitForState(kPaused));
    EXPECT_EQ(CliOk({"resume"}), "playing\n");
    EXPECT_TRUE(WaitForState(kPlaying));
}

TEST_F(CliTest, PauseWithNothingPlayingFails)
{
    const CliProcess::Result result = Cli({"pause"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "usb-media-ctl: E: No Song to pause! (code -1)\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(CliTest, ResumeWithNothingToPlayFails)
{
    const CliProcess::Result result = Cli({"resume"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "usb-media-ctl: E: No Song to play! (code -1)\n");
}

TEST_F(CliPlaybackTest, Stop)
{
    StartJazz();
    EXPECT_EQ(CliOk({"stop"}), "stopped\n");
    EXPECT_TRUE(WaitForState(kStopped));
}

TEST_F(CliPlaybackTest, NextAndPrevious)
{
    StartJazz();
    EXPECT_EQ(CliOk({"next"}), "next track\n");
    EXPECT_EQ(NextTrackTitle(), "Night Walk");
    EXPECT_EQ(CliOk({"prev"}), "previous track\n");
    EXPECT_EQ(NextTrackTitle(), "Blue Hour");
}

TEST_F(CliTest, NextWithoutPlaylistFails)
{
    const CliProcess::Result result = Cli({"next"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("usb-media-ctl: E: "), 0u) << result.err;
}

TEST_F(CliPlaybackTest, RestartGoesBackToTheStart)
{
    StartJazz();
    ASSERT_TRUE(WaitForTime(2));
    EXPECT_EQ(CliOk({"restart"}), "track restarted\n");
    Json::Value notification;
    ASSERT_TRUE(listener.NextNotification(notification, "trackTimeNotification", kWireTimeoutMs));
    EXPECT_LE(notification["params"]["trackTime"].asUInt(), 1u) << notification.toStyledString();
}

TEST_F(CliPlaybackTest, SeekInSecondsAndMinutes)
{
    StartJazz();
    EXPECT_EQ(CliOk({"seek", "3"}), "seeked to 0:03\n");
    unsigned time = 0;
    EXPECT_TRUE(WaitForTime(3, &time));
    EXPECT_LE(time, 5u);
    EXPECT_EQ(CliOk({"seek", "0:01"}), "seeked to 0:01\n");
}

TEST_F(CliPlaybackTest, FastForwardAndRewind)
{
    StartJazz();
    EXPECT_EQ(CliOk({"ff", "on"}), "fast forward on\n");
    EXPECT_TRUE(WaitForState(kFastForward));
    EXPECT_EQ(CliOk({"ff", "off"}), "fast forward off\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(CliOk({"rew", "on"}), "rewind on\n");
    EXPECT_TRUE(WaitForState(kRewind));
    EXPECT_EQ(CliOk({"rew", "off"}), "rewind off\n");
    EXPECT_TRUE(WaitForState(kPlaying));
}

TEST_F(CliTest, FastForwardWhileStoppedIsRefused)
{
    const CliProcess::Result result = Cli({"ff", "on"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "usb-media-ctl: fast forward refused: the player is not playing, or is already in fast-forward\n");
    const CliProcess::Result rewind = Cli({"rew", "on", "--json"});
    EXPECT_EQ(rewind.status, 1);
    EXPECT_EQ(rewind.out, "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":false}\n");
}

TEST_F(CliTest, RepeatModes)
{
    EXPECT_EQ(CliOk({"repeat"}), "repeat: none\n");
    EXPECT_EQ(CliOk({"repeat", "all"}), "repeat: all\n");
    Json::Value notification;
    ASSERT_TRUE(listener.NextNotification(notification, "repeatModeChangedNotification", kWireTimeoutMs));
    EXPECT_EQ(notification["params"]["mode"], 2) << notification.toStyledString();
    EXPECT_EQ(CliOk({"repeat", "one"}), "repeat: one\n");
    EXPECT_EQ(CliOk({"repeat"}), "repeat: one\n");
    EXPECT_EQ(CliOk({"repeat", "none"}), "repeat: none\n");
}

TEST_F(CliTest, Shuffle)
{
    EXPECT_EQ(CliOk({"shuffle"}), "shuffle: off\n");
    EXPECT_EQ(CliOk({"shuffle", "on"}), "shuffle: on\n");
    Json::Value notification;
    ASSERT_TRUE(listener.NextNotification(notification, "shuffleModeChangedNotification", kWireTimeoutMs));
    EXPECT_TRUE(notification["params"]["enabled"].asBool()) << notification.toStyledString();
    EXPECT_EQ(CliOk({"shuffle"}), "shuffle: on\n");
    EXPECT_EQ(CliOk({"shuffle", "off"}), "shuffle: off\n");
}

// --- album art -------------------------------------------------------------

TEST_F(CliPlaybackTest, AlbumArtPrintsTheWrittenFile)
{
    IndexStick();
    ASSERT_EQ(Cli({"play", Stick() + "/Covers/cover.mp3"}).status, 0);
    ASSERT_EQ(NextTrackTitle(), "Cover Song");
    const CliProcess::Result result = Cli({"art"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string directory = Root() + "/home/root/art_dump/art";
    EXPECT_EQ(result.out.substr(0, directory.size()), directory) << result.out;
    EXPECT_EQ(result.out.substr(result.out.size() - 5), ".dat\n") << result.out;
    EXPECT_TRUE(Exists(result.out.substr(0, result.out.size() - 1)));
}

TEST_F(CliPlaybackTest, AlbumArtOfATrackWithoutCoverTimesOut)
{
    StartJazz();
    const CliProcess::Result result = Cli({"art", "--wait", "2"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "usb-media-ctl: no album art arrived within 2 s (the track may have no cover image)\n");
}

// --- device ----------------------------------------------------------------

TEST_F(CliTest, UsbPluggedAndUnplugged)
{
    EXPECT_EQ(CliOk({"usb", "usb1", "unplugged"}), "usb1: unplugged reported\n");
    Json::Value notification;
    ASSERT_TRUE(listener.NextNotification(notification, "usbConnectionNotification", kWireTimeoutMs));
    EXPECT_EQ(notification["params"]["usbDeviceName"], "usb1") << notification.toStyledString();
    EXPECT_FALSE(notification["params"]["connected"].asBool()) << notification.toStyledString();
    EXPECT_EQ(notification["params"]["errorCode"], "") << notification.toStyledString();
    EXPECT_EQ(CliOk({"usb", "usb1", "plugged"}), "usb1: plugged reported\n");
    ASSERT_TRUE(listener.NextNotification(notification, "usbConnectionNotification", kWireTimeoutMs));
    EXPECT_TRUE(notification["params"]["connected"].asBool()) << notification.toStyledString();
}

TEST_F(CliTest, UsbEventOfAnUnsupportedStick)
{
    CliOk({"usb", "usb1", "unplugged", "--not-supported"});
    Json::Value params;
    params["deviceName"] = "usb1";
    {
        const Json::Value reply = Call("isUSBconnected", params);
        EXPECT_EQ(reply["result"]["errorCode"], "not_supported") << reply.toStyledString();
    }
    CliOk({"usb", "usb1", "unplugged", "--unreadable"});
    {
        const Json::Value reply = Call("isUSBconnected", params);
        EXPECT_EQ(reply["result"]["errorCode"], "unreadable") << reply.toStyledString();
    }
    const std::string out = CliOk({"status"});
    EXPECT_TRUE(Contains(out, "usb1:     not connected (unreadable)\n")) << out;
}

TEST_F(CliPlaybackTest, PowerOffOnAndResumeInfo)
{
    StartJazz();
    EXPECT_EQ(CliOk({"power", "off"}), "soft power-off\n");
    EXPECT_EQ(CliOk({"power", "on"}), "power on\n");
    const std::string out = CliOk({"resume-info"});
    EXPECT_TRUE(Contains(out, "file:     " + Stick() + "/Jazz/a-blue.mp3\n")) << out;
    EXPECT_TRUE(Contains(out, "state:    playing\n")) << out;
    EXPECT_TRUE(Contains(out, "repeat:   none\n")) << out;
    EXPECT_TRUE(Contains(out, "shuffle:  off\n")) << out;
    EXPECT_EQ(CliOk({"resume-info"}), "no suspended track\n");
}

TEST_F(CliTest, ResumeInfoWithoutPowerOff)
{
    EXPECT_EQ(CliOk({"resume-info"}), "no suspended track\n");
    EXPECT_EQ(CliOk({"resume-info", "--json"}),
              "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"suspensionData\":{\"isSuspended\":false}}}\n");
}

// --- watch -----------------------------------------------------------------

TEST_F(CliTest, WatchShowsModeAndUsbChanges)
{
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching 127.0.0.1:" + std::to_string(Daemon().Port()), kWireTimeoutMs))
        << watch.Err();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    Json::Value params;
    params["mode"] = 2;
    Call("setRepeatModeUSB", params);
    EXPECT_TRUE(watch.WaitForOutput("repeat: all\n", kWireTimeoutMs)) << watch.Out();
    Json::Value shuffle;
    shuffle["enable"] = true;
    Call("enableShuffleUSB", shuffle);
    EXPECT_TRUE(watch.WaitForOutput("shuffle: on\n", kWireTimeoutMs)) << watch.Out();
    Json::Value usb;
    usb["usbDevice"] = "usb1";
    usb["usbConnected"] = false;
    usb["isSupported"] = true;
    usb["isReadable"] = false;
    Call("usbConnectionEvent", usb);
    EXPECT_TRUE(watch.WaitForOutput("usb usb1: disconnected (unreadable)\n", kWireTimeoutMs)) << watch.Out();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
    EXPECT_EQ(AfterProbes(watch.Out()), "repeat: all\nshuffle: on\nusb usb1: disconnected (unreadable)\n");
}

TEST_F(CliTest, WatchWithJsonPrintsTheNotificationsAsReceived)
{
    CliProcess watch(CliOptions({"watch", "--json"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    const std::string probe = "{\"jsonrpc\":\"2.0\",\"method\":\"repeatModeChangedNotification\",\"params\":{\"mode\":0}}\n";
    ASSERT_TRUE(WaitUntilWatchHears(watch, probe)) << watch.Out();
    Json::Value params;
    params["mode"] = 2;
    Call("setRepeatModeUSB", params);
    const std::string line = "{\"jsonrpc\":\"2.0\",\"method\":\"repeatModeChangedNotification\",\"params\":{\"mode\":2}}\n";
    EXPECT_TRUE(watch.WaitForOutput(line, kWireTimeoutMs)) << watch.Out();
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
    EXPECT_EQ(AfterProbes(watch.Out(), probe), line);
}

TEST_F(CliPlaybackTest, WatchShowsPlaybackAsPlainLines)
{
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    StartJazz();
    EXPECT_TRUE(watch.WaitForOutput("state: playing\n", kWireTimeoutMs)) << watch.Out();
    EXPECT_TRUE(watch.WaitForOutput("track 1/3: \"Blue Hour\" by The Demo Trio, album \"Late Set\"", kWireTimeoutMs))
        << watch.Out();
    EXPECT_TRUE(watch.WaitForOutput("time 0:02 / 0:0", kWireTimeoutMs)) << watch.Out();
    CliOk({"pause"});
    EXPECT_TRUE(watch.WaitForOutput("state: paused\n", kWireTimeoutMs)) << watch.Out();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
    EXPECT_FALSE(Contains(watch.Out(), "\r"));
}

TEST_F(CliPlaybackTest, WatchShowsTheEndOfThePlaylist)
{
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    IndexStick();
    ASSERT_EQ(Cli({"play", Stick() + "/Welcome.mp3"}).status, 0);
    EXPECT_TRUE(watch.WaitForOutput("end of playlist\n", kWireTimeoutMs)) << watch.Out();
}

TEST_F(CliPlaybackTest, WatchOnATerminalRedrawsTheTimeLine)
{
    CliProcess::Options options = CliOptions({"watch"});
    options.terminal = true;
    CliProcess watch(options);
    ASSERT_TRUE(watch.WaitForOutput("watching", kWireTimeoutMs)) << watch.Out();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    StartJazz();
    EXPECT_TRUE(watch.WaitForOutput("\rtime 0:02 / 0:0", kWireTimeoutMs)) << watch.Out();
    const size_t bar = watch.Out().find("\rtime 0:02 / 0:0");
    EXPECT_EQ(watch.Out().substr(bar + 17, 3), " [#") << watch.Out();
    CliOk({"pause"});
    // The state line ends the time line first.
    EXPECT_TRUE(watch.WaitForOutput("\r\nstate: paused\r\n", kWireTimeoutMs)) << watch.Out();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
}

TEST_F(CliPlaybackTest, WatchAloneKeepsPlaybackGoing)
{
    listener.Close();
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    ASSERT_EQ(Cli({"play", "/mnt/usb-stick1/Jazz"}).status, 0);
    // The first track played to its end and the next one began: a service
    // that heard no client would have stopped at the first time report. (A
    // busy machine may skip a second's report, so no one second is awaited.)
    EXPECT_TRUE(watch.WaitForOutput("track 2/3", kWireTimeoutMs)) << watch.Out();
    const std::string out = watch.Out();
    EXPECT_TRUE(Contains(out.substr(0, out.find("state: stopped")), "/ 0:06")) << out;
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
}

TEST_F(CliTest, WatchEndsWhenTheServiceStops)
{
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    listener.Close();
    StopDaemon();
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 2);  // a connection error, as the README says
    EXPECT_TRUE(Contains(watch.Err(), "usb-media-ctl: the service closed the connection\n")) << watch.Err();
}

// --- plug events, rough edges ---------------------------------------------

namespace {
// udev's fnmatch of a rule's "a|b|c" pattern list.
bool MatchesAny(const std::string& patterns, const std::string& value)
{
    std::istringstream list(patterns);
    std::string pattern;
    while (std::getline(list, pattern, '|')) {
        if (fnmatch(pattern.c_str(), value.c_str(), 0) == 0) {
            return true;
        }
    }
    return false;
}

// The quoted value after `key` on `line`, or "" when `key` is not there.
std::string QuotedAfter(const std::string& line, const std::string& key)
{
    const size_t at = line.find(key);
    if (at == std::string::npos) {
        return "";
    }
    const size_t end = line.find('"', at + key.size());
    return line.substr(at + key.size(), end - at - key.size());
}

// The port number the rule gives a device at `idPath` (its
// ENV{ID_PATH}=="..." lines setting USBMEDIA_STICK), "" for none.
std::string StickOfRule(const std::string& rules, const std::string& idPath)
{
    std::istringstream lines(rules);
    std::string line;
    while (std::getline(lines, line)) {
        const std::string patterns = QuotedAfter(line, "ENV{ID_PATH}==\"");
        const std::string stick = QuotedAfter(line, "ENV{USBMEDIA_STICK}=\"");
        if (line.rfind("#", 0) != 0 && !patterns.empty() && !stick.empty() && MatchesAny(patterns, idPath)) {
            return stick;
        }
    }
    return "";
}

// The unit template the rule starts for a file system: the stick unit for
// the types its ENV{ID_FS_TYPE}=="..." line lists, else the unsupported one.
std::string StickUnitOfRule(const std::string& rules, const std::string& fsType)
{
    std::istringstream lines(rules);
    std::string line;
    while (std::getline(lines, line)) {
        const std::string types = QuotedAfter(line, "ENV{ID_FS_TYPE}==\"");
        if (line.rfind("#", 0) != 0 && !types.empty()) {
            return MatchesAny(types, fsType) ? "usb-media-stick@.service" : "usb-media-stick-unsupported@.service";
        }
    }
    return "";
}

// A unit's ExecStart= or ExecStop= command for instance `stick`, as systemd
// runs it: %i replaced, the "-" that ignores its status dropped.
std::vector<std::string> UnitCommand(const std::string& unit, const std::string& key, const std::string& stick)
{
    std::istringstream lines(unit);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind(key + "=", 0) != 0) {
            continue;
        }
        std::string text = line.substr(key.size() + 1);
        if (!text.empty() && text[0] == '-') {
            text.erase(0, 1);
        }
        for (size_t at = text.find("%i"); at != std::string::npos; at = text.find("%i", at)) {
            text.replace(at, 2, stick);
        }
        std::istringstream words(text);
        std::vector<std::string> command;
        std::string word;
        while (words >> word) {
            command.push_back(word);
        }
        return command;
    }
    return {};
}
}  // namespace

// What systemd does with a stick the rule hands it: the stick unit's start
// and stop commands, run with the client built here against the daemon.
class CliUdevTest : public CliTest {
protected:
    // Runs `key` (ExecStart or ExecStop) of the unit the rule starts for a
    // device at `idPath` with a file system of `fsType`.
    CliProcess::Result RunStickUnit(const std::string& key, const std::string& idPath, const std::string& fsType)
    {
        const std::string rules = testing_support::ReadFile(std::string(USBMEDIA_DIST_DIR) + "/90-usb-media-service.rules");
        const std::string stick = StickOfRule(rules, idPath);
        const std::string unitName = StickUnitOfRule(rules, fsType);
        EXPECT_FALSE(stick.empty()) << rules;
        EXPECT_FALSE(unitName.empty()) << rules;
        const std::string unit = testing_support::ReadFile(std::string(USBMEDIA_DIST_DIR) + "/" + unitName);
        const std::vector<std::string> command = UnitCommand(unit, key, stick);
        EXPECT_GE(command.size(), 2u) << unit;
        if (stick.empty() || command.size() < 2) {
            return {};
        }
        EXPECT_EQ(command[0].substr(command[0].rfind('/')), "/usb-media-ctl");
        return CliProcess::Run(CliOptions(std::vector<std::string>(command.begin() + 1, command.end())),
                               kWireTimeoutMs);
    }

    bool NextUsbNotification(bool connected)
    {
        Json::Value notification;
        return listener.NextNotification(notification, "usbConnectionNotification", kWireTimeoutMs) &&
               notification["params"]["usbDeviceName"] == "usb1" &&
               notification["params"]["connected"].asBool() == connected;
    }

    std::string UsbErrorCode()
    {
        Json::Value params;
        params["deviceName"] = "usb1";
        return Call("isUSBconnected", params)["result"]["errorCode"].asString();
    }
};

TEST_F(CliUdevTest, StickUnitReportsStickOnePulledAndPlugged)
{
    const std::string port1 = "platform-4010000000.pcie-pci-0000:00:01.0-usb-0:1:1.0-scsi-0:0:0:0";
    CliProcess::Result result = RunStickUnit("ExecStop", port1, "vfat");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: unplugged reported (/mnt/usb-stick1)\n");
    EXPECT_TRUE(NextUsbNotification(false));
    result = RunStickUnit("ExecStart", port1, "vfat");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: plugged reported (/mnt/usb-stick1)\n");
    EXPECT_TRUE(NextUsbNotification(true));
    EXPECT_EQ(UsbErrorCode(), "");
}

TEST_F(CliUdevTest, RuleMapsTheSecondPortToStickTwo)
{
    const CliProcess::Result result =
        RunStickUnit("ExecStart", "pci-0000:00:14.0-usb-0:2.3:1.0-scsi-0:0:0:0", "exfat");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb2: plugged reported (/mnt/usb-stick2)\n");
}

TEST_F(CliUdevTest, RuleReportsAnUnreadableFileSystemAsNotSupported)
{
    const CliProcess::Result result = RunStickUnit("ExecStart", "pci-0000:00:14.0-usb-0:1:1.0-scsi-0:0:0:0", "hfs");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: plugged reported (/mnt/usb-stick1, not supported)\n");
    EXPECT_EQ(UsbErrorCode(), "not_supported");
}

TEST_F(CliUdevTest, MountEventAsUdevsEnvironmentSaysIt)
{
    CliProcess::Options options = CliOptions({"mount-event"});
    options.environment["ACTION"] = "add";
    options.environment["USBMEDIA_MOUNT_POINT"] = "/mnt/usb-stick1";
    options.environment["ID_FS_TYPE"] = "hfs";
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: plugged reported (/mnt/usb-stick1, hfs not supported)\n");
    EXPECT_EQ(UsbErrorCode(), "not_supported");
}

TEST_F(CliUdevTest, MountEventByHandWithTheRootPrefix)
{
    EXPECT_EQ(CliOk({"mount-event", Stick(), "unmounted"}), "usb1: unplugged reported (" + Stick() + ")\n");
    EXPECT_TRUE(NextUsbNotification(false));
    const CliProcess::Result wrong = Cli({"mount-event", "/mnt/usb-stick3", "mounted"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_TRUE(Contains(wrong.err, "(see usb-media-ctl mount-event --help)")) << wrong.err;
}

TEST_F(CliUdevTest, MountEventWithTheFileSystemUuidFromUdev)
{
    CliProcess::Options options = CliOptions({"mount-event", "/mnt/usb-stick1", "unmounted"});
    options.environment["ID_FS_UUID"] = "4A2B-91C0";
    CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: unplugged reported (/mnt/usb-stick1)\n");
    EXPECT_TRUE(NextUsbNotification(false));
    options.arguments = {"mount-event", "/mnt/usb-stick1", "mounted"};
    result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "usb1: plugged reported (/mnt/usb-stick1, UUID 4A2B-91C0)\n");
    EXPECT_TRUE(NextUsbNotification(true));
    EXPECT_EQ(UsbErrorCode(), "");
}

namespace {
// Stands for the service on a port of its own to read the one request the
// client puts on the wire (the service does not echo its parameters), and
// answers it as the service answers usbConnectionEvent: "jsonrpc" and "id".
class OneRequestListener {
public:
    OneRequestListener() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            listen(m_socket.Get(), 1) != 0 ||
            getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            ADD_FAILURE() << "no listening socket on 127.0.0.1";
            return;
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Serve(); });
    }
    ~OneRequestListener()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    OneRequestListener(const OneRequestListener&) = delete;
    OneRequestListener& operator=(const OneRequestListener&) = delete;

    int Port() const { return m_port; }

    // The request, once answered (null when none came within the time-out).
    Json::Value Request()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_request;
    }

private:
    static bool Readable(int fd)
    {
        pollfd wait{fd, POLLIN, 0};
        return poll(&wait, 1, kWireTimeoutMs) == 1;
    }

    void Serve()
    {
        if (!Readable(m_socket.Get())) {
            return;
        }
        const UniqueFd client(accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        Json::Rpc::JsonStreamFramer framer(1 << 20);
        std::string text;
        while (!framer.Next(text)) {
            char buffer[4096];
            const ssize_t got = Readable(client.Get()) ? recv(client.Get(), buffer, sizeof buffer, 0) : -1;
            if (got <= 0) {
                return;
            }
            framer.Append(buffer, static_cast<size_t>(got));
        }
        Json::Value request;
        std::istringstream(text) >> request;
        const std::string reply = "{\"jsonrpc\":\"2.0\",\"id\":" + request["id"].toStyledString() + "}\n";
        (void)send(client.Get(), reply.data(), reply.size(), MSG_NOSIGNAL);
        m_request = request;
    }

    UniqueFd m_socket;
    int m_port = 0;
    std::thread m_thread;
    Json::Value m_request;  // written by the thread, read after it ended
};
}  // namespace

TEST_F(CliTest, MountEventSendsTheFileSystemUuidOnlyWhenMounted)
{
    for (const bool mounted : {true, false}) {
        OneRequestListener service;
        CliProcess::Options options = CliOptions({"--port", std::to_string(service.Port()), "mount-event",
                                                  "/mnt/usb-stick1", mounted ? "mounted" : "unmounted"});
        options.environment["ID_FS_UUID"] = "1f0e8a52-7d3c-4b1e-9a6d-2c5e8f1b7a90";
        const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        const Json::Value request = service.Request();
        EXPECT_EQ(request["method"], "usbConnectionEvent") << request;
        Json::Value params(Json::objectValue);
        params["usbDevice"] = "usb1";
        params["usbConnected"] = mounted;
        params["isSupported"] = true;
        params["isReadable"] = true;
        if (mounted) {
            params["fsUUID"] = "1f0e8a52-7d3c-4b1e-9a6d-2c5e8f1b7a90";
        }
        EXPECT_EQ(request["params"], params) << request;
    }
}

// The test's stick is a folder, not a mount: no UUID is found, none is sent.
TEST_F(CliTest, MountEventWithoutAUuidSendsNone)
{
    OneRequestListener service;
    CliProcess::Options options =
        CliOptions({"--port", std::to_string(service.Port()), "mount-event", Stick(), "mounted"});
    options.environment["ID_FS_UUID"] = "";
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.out, "usb1: plugged reported (" + Stick() + ")\n");
    const Json::Value request = service.Request();
    EXPECT_EQ(request["method"], "usbConnectionEvent") << request;
    EXPECT_TRUE(request["params"].isObject()) << request;
    EXPECT_FALSE(request["params"].isMember("fsUUID")) << request;
}

TEST_F(CliTest, ListOfAMissingFolderSaysSo)
{
    IndexStick();
    const CliProcess::Result result = Cli({"ls", "/mnt/usb-stick1/Blues"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.err, "there is no folder " + Stick() + "/Blues")) << result.err;
    EXPECT_FALSE(Contains(result.err, "not indexed")) << result.err;
}

TEST_F(CliTest, VerbErrorsPointToTheVerbsHelp)
{
    const CliProcess::Result result = Cli({"seek", "soon"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "\n(see usb-media-ctl seek --help)\n")) << result.err;
    const CliProcess::Result unknown = Cli({"dance"});
    EXPECT_EQ(unknown.err, "usb-media-ctl: unknown verb \"dance\"\n(see usb-media-ctl --help)\n");
}

TEST_F(CliTest, WatchExitsTwoWhenTheServiceClosesTheConnection)
{
    CliProcess watch(CliOptions({"watch", "--json"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    StopDaemon();
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 2);
    EXPECT_TRUE(Contains(watch.Err(), "the service closed the connection")) << watch.Err();
}

// The demo stick that scripts/demo.sh makes has a cover, so art can be tried.
TEST_F(CliTest, DemoStickWelcomeHasACoverForArt)
{
    TempDir demo;
    const std::string script = std::string(USBMEDIA_SOURCE_DIR) + "/scripts/make-demo-stick.sh";
    DaemonProcess::ForgetEmulatorEnvironment();  // the script runs the host's gst-launch-1.0
    const int status = std::system(("bash '" + script + "' '" + demo.Path() + "' >/dev/null 2>&1").c_str());
    ASSERT_EQ(status, 0);
    DaemonProcess::Options options;
    options.environment["USBMEDIA_ROOT"] = demo.Path();
    DaemonProcess daemon(options);
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    CliProcess::Options cli;
    cli.environment["USBMEDIA_PORT"] = std::to_string(daemon.Port());
    cli.environment["USBMEDIA_ROOT"] = demo.Path();
    cli.arguments = {"play", "/mnt/usb-stick1/Welcome.mp3"};
    const CliProcess::Result played = CliProcess::Run(cli, kWireTimeoutMs);
    ASSERT_EQ(played.status, 0) << played.err;
    Json::Value notification;
    ASSERT_TRUE(client.NextNotification(notification, "trackInfoNotification", kWireTimeoutMs));
    EXPECT_EQ(notification["params"]["trackInfo"]["trackTitle"], "Welcome") << notification.toStyledString();
    cli.arguments = {"art"};
    const CliProcess::Result art = CliProcess::Run(cli, kWireTimeoutMs);
    EXPECT_EQ(art.status, 0) << art.err;
    ASSERT_GT(art.out.size(), 1u);
    EXPECT_TRUE(Exists(art.out.substr(0, art.out.size() - 1))) << art.out;
    EXPECT_EQ(daemon.Stop(SIGTERM, kWireTimeoutMs), 0);
}

// --- tag library -------------------------------------------------------------

namespace {
// A stick of its own with one album of two MP3s, tagged at test time by
// tests/support/tag_files.py: "Two Songs" (2020, Jazz) by The Test Duo.
class TaggedStick {
public:
    TaggedStick()
    {
        const std::string album = Root() + "/mnt/usb-stick1/Duo";
        Json::Value manifest(Json::arrayValue);
        manifest.append(Tagged(album + "/01-first.mp3", "First Light", "1"));
        manifest.append(Tagged(album + "/02-second.mp3", "Second Wind", "2"));
        testing_support::MakeDirs(m_root / "mnt/usb-stick2");
        testing_support::MakeDirs(m_root / "home/root");
        const std::string manifestPath = m_root / "tags.json";
        testing_support::WriteFile(manifestPath, manifest.toStyledString());
        m_tagged = testing_support::RunToEnd({"/usr/bin/python3",
                                              std::string(USBMEDIA_SOURCE_DIR) + "/tests/support/tag_files.py",
                                              manifestPath})
                       .succeeded;
    }

    std::string Root() const { return m_root.Path(); }
    bool Tagged() const { return m_tagged; }

private:
    // A private copy (the tagger rewrites it) and its manifest entry.
    static Json::Value Tagged(const std::string& path, const std::string& title, const std::string& track)
    {
        MediaFactory::Place(MediaFactory::Mp3(kShortSongSeconds), path, true);
        Json::Value entry(Json::objectValue);
        entry["path"] = path;
        entry["format"] = "id3v24";
        entry["encoding"] = "utf8";
        Json::Value& tags = entry["tags"];
        tags["title"] = title;
        tags["artist"] = "The Test Duo";
        tags["album"] = "Two Songs";
        tags["genre"] = "Jazz";
        tags["year"] = "2020";
        tags["track"] = track;
        return entry;
    }

    TempDir m_root;
    bool m_tagged = false;
};

class CliLibraryTest : public CliTest {
protected:
    std::string Root() const override { return m_stick.Root(); }

    void SetUp() override
    {
        ASSERT_TRUE(m_stick.Tagged()) << "tag_files.py failed";
        CliTest::SetUp();
    }

    // Indexes the stick, which scans its tags, and waits for the scan's end.
    void IndexAndWaitForTheLibrary()
    {
        ListenToTheLibrary();
        CliOk({"index", "/mnt/usb-stick1"});
        WaitForTheLibrary();
    }

    // The service tells of scans only the clients that used the library.
    void ListenToTheLibrary() { ASSERT_TRUE(Call("getLibraryStatusUSB")["result"].isObject()); }

    void WaitForTheLibrary()
    {
        Json::Value notification;
        while (listener.NextNotification(notification, "libraryScanNotification", kWireTimeoutMs)) {
            if (notification["params"]["state"] != "scanning") {
                break;
            }
        }
        ASSERT_EQ(notification["params"]["state"], "ready") << notification.toStyledString();
    }

    // The ID at the start of the line holding `text`.
    static std::string IdOfLineWith(const std::string& listing, const std::string& text)
    {
        std::istringstream lines(listing);
        std::string line;
        while (std::getline(lines, line)) {
            if (Contains(line, text)) {
                const size_t first = line.find_first_not_of(' ');
                return line.substr(first, line.find(' ', first) - first);
            }
        }
        return "<no line with " + text + ">";
    }

private:
    TaggedStick m_stick;
};
}  // namespace

TEST_F(CliLibraryTest, BrowseByArtistAlbumAndGenreThenPlayTheAlbum)
{
    IndexAndWaitForTheLibrary();
    const std::string status = CliOk({"library"});
    EXPECT_TRUE(Contains(status, "state:    ready\n")) << status;
    EXPECT_TRUE(Contains(status, "scanned:  2 of 2 files\ntracks:   2\nartists:  1\nalbums:   1\ngenres:   1\n"))
        << status;

    const std::string artists = CliOk({"artists"});
    EXPECT_TRUE(Contains(artists, "  The Test Duo (1 album, 2 tracks)\nentries 1-1 of 1\n")) << artists;
    const std::string artist = IdOfLineWith(artists, "The Test Duo");
    const std::string genres = CliOk({"genres"});
    EXPECT_TRUE(Contains(genres, "  Jazz (1 album, 2 tracks)\n")) << genres;

    const std::string albums = CliOk({"albums", "--artist", artist});
    EXPECT_TRUE(Contains(albums, "  Two Songs - The Test Duo (2020, 2 tracks)\nentries 1-1 of 1\n")) << albums;
    const std::string album = IdOfLineWith(albums, "Two Songs");
    EXPECT_EQ(CliOk({"albums", "--genre", IdOfLineWith(genres, "Jazz")}), albums);

    const std::string tracks = CliOk({"tracks", "--album", album});
    EXPECT_TRUE(Contains(tracks, "  01 First Light - The Test Duo (Two Songs, ")) << tracks;
    EXPECT_TRUE(Contains(tracks, "  02 Second Wind - The Test Duo (Two Songs, ")) << tracks;
    EXPECT_TRUE(Contains(tracks, "entries 1-2 of 2\n")) << tracks;
    const std::string secondPage = CliOk({"tracks", "--album", album, "1", "1"});
    EXPECT_TRUE(Contains(secondPage, "  02 Second Wind - ")) << secondPage;
    EXPECT_FALSE(Contains(secondPage, "First Light")) << secondPage;
    EXPECT_TRUE(Contains(secondPage, "entries 2-2 of 2\n")) << secondPage;
    const std::string second = IdOfLineWith(tracks, "Second Wind");

    const std::string found = CliOk({"search", "WIND"});
    EXPECT_TRUE(Contains(found, "artists: no entries (0 in all)\nalbums: no entries (0 in all)\n"
                                "tracks: entries 1-1 of 1\n"))
        << found;
    EXPECT_EQ(IdOfLineWith(found, "Second Wind"), second) << found;

    EXPECT_EQ(CliOk({"play-album", album, second}), "playing album " + album + " from track " + second + "\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "Second Wind");
}

TEST_F(CliLibraryTest, PlayArtistFromTheFirstTrackAndRefusals)
{
    IndexAndWaitForTheLibrary();
    const std::string artist = IdOfLineWith(CliOk({"artists"}), "The Test Duo");
    EXPECT_EQ(CliOk({"play-artist", artist}), "playing artist " + artist + "\n");
    EXPECT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(NextTrackTitle(), "First Light");

    const CliProcess::Result notInList = Cli({"play-artist", artist, "12345"});
    EXPECT_EQ(notInList.status, 1);
    EXPECT_TRUE(Contains(notInList.err, "E: Track not in this list (code -12)")) << notInList.err;
    EXPECT_TRUE(Contains(notInList.err, "usb-media-ctl tracks --artist " + artist + " lists them")) << notInList.err;
    const CliProcess::Result unknown = Cli({"play-genre", "12345"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(Contains(unknown.err, "E: Playlist is empty (code -3)")) << unknown.err;
}

TEST_F(CliLibraryTest, JsonPrintsTheRepliesAsReceived)
{
    IndexAndWaitForTheLibrary();
    const std::string status = CliOk({"library", "--json"});
    EXPECT_TRUE(Contains(status, R"("result":{"albums":1,"artists":1,"genres":1,"scanned":2,"state":"ready",)"
                                 R"("total":2,"tracks":2})"))
        << status;
    const std::string genres = CliOk({"--json", "genres"});
    EXPECT_TRUE(Contains(genres, R"("name":"Jazz","trackCount":2}],"totalCount":1})")) << genres;
}

TEST_F(CliLibraryTest, WatchShowsTheScan)
{
    CliProcess watch(CliOptions({"watch"}));
    ASSERT_TRUE(watch.WaitForError("watching", kWireTimeoutMs)) << watch.Err();
    ASSERT_TRUE(WaitUntilWatchHears(watch)) << watch.Out();
    IndexAndWaitForTheLibrary();
    EXPECT_TRUE(watch.WaitForOutput("library: ready, 2 tracks, 1 artist, 1 album, 1 genre\n", kWireTimeoutMs))
        << watch.Out();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(kWireTimeoutMs), 0);
}

// The same requests straight from a test client, so the wire log check holds
// the service's replies to the protocol description.
TEST_F(CliLibraryTest, RepliesTheVerbsPrintAreAsDescribed)
{
    IndexAndWaitForTheLibrary();
    Json::Value page(Json::objectValue);
    page["startIndex"] = 0;
    page["itemCount"] = 20;
    EXPECT_EQ(Call("getLibraryStatusUSB")["result"]["state"], "ready");
    const Json::Value artists = Call("getArtistsUSB", page);
    ASSERT_EQ(artists["result"]["entries"].size(), 1u) << artists.toStyledString();
    const Json::Value genres = Call("getGenresUSB", page);
    EXPECT_EQ(genres["result"]["entries"][0]["name"], "Jazz") << genres.toStyledString();
    Json::Value byArtist = page;
    byArtist["artistID"] = artists["result"]["entries"][0]["ID"];
    const Json::Value albums = Call("getAlbumsUSB", byArtist);
    ASSERT_EQ(albums["result"]["entries"].size(), 1u) << albums.toStyledString();
    Json::Value byAlbum = page;
    byAlbum["albumID"] = albums["result"]["entries"][0]["ID"];
    const Json::Value tracks = Call("getTracksUSB", byAlbum);
    EXPECT_EQ(tracks["result"]["totalCount"], 2) << tracks.toStyledString();
    Json::Value search = page;
    search["text"] = "S";  // in "The Test Duo", "Two Songs", "First Light" and "Second Wind"
    const Json::Value found = Call("searchLibraryUSB", search);
    EXPECT_EQ(found["result"]["artists"]["totalCount"], 1) << found.toStyledString();
    EXPECT_EQ(found["result"]["albums"]["totalCount"], 1) << found.toStyledString();
    EXPECT_EQ(found["result"]["tracks"]["totalCount"], 2) << found.toStyledString();
    Json::Value play(Json::objectValue);
    play["albumID"] = byAlbum["albumID"];
    play["startTrackID"] = 1;
    const Json::Value refused = Call("playTracksUSB", play);
    EXPECT_EQ(refused["error"]["code"], -12) << refused.toStyledString();
}

// A plug event with the file system UUID: the library is kept under it.
TEST_F(CliLibraryTest, PluggedStickIsKeptByItsFileSystemUuid)
{
    ListenToTheLibrary();
    EXPECT_EQ(CliOk({"usb", "usb1", "plugged", "--fs-uuid", "1234-ABCD"}), "usb1: plugged reported\n");
    WaitForTheLibrary();
    EXPECT_TRUE(Exists(Root() + "/var/lib/usb-media-service/tags-uuid-1234-ABCD.sqlite"))
        << testing::PrintToString(testing_support::FolderNames(Root() + "/var/lib/usb-media-service"));
}

TEST_F(CliLibraryTest, MountEventSendsUdevsFileSystemUuid)
{
    CliProcess::Options options = CliOptions({"mount-event", "/mnt/usb-stick1", "mounted"});
    options.environment["ID_FS_UUID"] = "CAFE-0001";
    ListenToTheLibrary();
    const CliProcess::Result result = CliProcess::Run(options, kWireTimeoutMs);
    ASSERT_EQ(result.status, 0) << result.err;
    WaitForTheLibrary();
    EXPECT_TRUE(Exists(Root() + "/var/lib/usb-media-service/tags-uuid-CAFE-0001.sqlite"))
        << testing::PrintToString(testing_support::FolderNames(Root() + "/var/lib/usb-media-service"));
}
