// Tag library benchmark, through the daemon over TCP:
// - the first scan of a stick of real tagged tracks (bench/make_tag_tree.py),
//   against mpd's full database update and a bare TagLib loop over the same
//   files (bench/taglib_loop.cpp), both run by this program between its own
//   scans, so that all share the machine's load of the moment (every scan
//   time is a median of three);
// - a re-index of the unchanged stick, one after a daemon restart and a
//   re-plug (usbConnectionEvent), against that first scan;
// - ping's tail while the scan runs, against an idle daemon's;
// - on a stick of 50,000 small tracks: the query pages against ping, the
//   resident memory the library adds and the database's bytes per track.
// Figures are printed, never asserted.
//
// The library alone, in this process (walk, CTagScanPass, no daemon), gets
// rows of its own beside the daemon's first scan.
//
// Usage: library_bench TREE BIG_TREE TAGLIB_LOOP MPD_UPDATE
// (TREE and BIG_TREE made by bench/make_tag_tree.py, TAGLIB_LOOP the
// taglib_loop binary, MPD_UPDATE bench/mpd_update.py; bench/library.sh
// puts them together)

#include "BenchRequest.h"
#include "BenchRows.h"

#include "control/rpc/JsonText.h"
#include "library/StorageIndex.h"
#include "library/TagScan.h"
#include "library/TagStore.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/ProcessStatus.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::ResidentKiB;
using testing_support::RpcClient;
using testing_support::TempDir;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRuns = 3;  // medians of three for the scan times
constexpr auto kPingInterval = std::chrono::milliseconds(1);
constexpr auto kIdlePingTime = std::chrono::seconds(3);
constexpr int kQueryRoundTrips = 300;
constexpr int kPageSize = 20;
constexpr int kScanTimeoutMs = 15 * 60 * 1000;
constexpr int kStopTimeoutMs = 30000;
const char* const kStickFolder = "/mnt/usb-stick1";
const char* const kStateFolder = "/var/lib/usb-media-service";
const char* const kStickUuid = "BE7C-2026";

double Seconds(Clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

double Percentile(std::vector<double> values, int percent)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, values.size() * static_cast<size_t>(percent) / 100)];
}

std::string S(double seconds)
{
    return Fixed("%.2f s", seconds);
}

// One prepared request and its reply read back unparsed (the client's JSON
// work is not the daemon's cost); notifications on the way are skipped.
double RoundTrip(RpcClient& client, const std::string& request)
{
    const auto start = Clock::now();
    if (!client.SendRaw(request)) {
        throw std::runtime_error("send failed: " + request);
    }
    std::string line;
    do {
        if (!client.ReadLine(line, 30000)) {
            throw std::runtime_error("no reply to " + request);
        }
    } while (line.rfind("{\"jsonrpc\"", 0) == 0);  // a notification: a reply's keys sort "id" first
    const double seconds = Seconds(Clock::now() - start);
    if (line.find("\"error\"") != std::string::npos) {
        throw std::runtime_error("error reply to " + request + ": " + line);
    }
    return seconds;
}

std::vector<double> RoundTrips(RpcClient& client, const std::string& request, int count)
{
    std::vector<double> times;
    times.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        times.push_back(RoundTrip(client, request));
    }
    return times;
}

Json::Value Expect(const Json::Value& reply, const std::string& what)
{
    if (reply.isNull() || reply.isMember("error")) {
        throw std::runtime_error(what + " failed: " + Json::Rpc::ToWireText(reply));
    }
    return reply["result"];
}

void Run(const std::string& command)
{
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

// The stick: a hard-linked copy of the tree, so the daemon reads the same
// cached pages the references read.
std::string MakeStick(const TempDir& root, const std::string& tree)
{
    testing_support::MakeDirs(root / "mnt");
    const std::string stick = root.Path() + kStickFolder;
    Run("cp -al '" + tree + "' '" + stick + "'");
    return stick;
}

DaemonProcess::Options DaemonOptions(const TempDir& root)
{
    DaemonProcess::Options options;
    options.environment["USBMEDIA_ROOT"] = root.Path();
    options.environment["USBMEDIA_AUDIO_SINK"] = "fakesink";
    return options;
}

void Connect(RpcClient& client, const DaemonProcess& daemon)
{
    if (!client.Connect(daemon.Port())) {
        throw std::runtime_error("cannot connect to the daemon");
    }
}

struct SScan {
    double seconds = 0;
    Json::Value status;  // the notification's members at the end
};

// The library's notifications go to the clients that called one of its
// methods: this one asks for the status first (and a daemon without the
// library fails here, not after a time-out).
void ListenToLibrary(RpcClient& client)
{
    Expect(client.Call("getLibraryStatusUSB"), "getLibraryStatusUSB");
    client.DrainNotifications(100);
}

// Sends `method` (which starts a scan), then reads the library's
// notifications until the scan has ended; times both from the request.
SScan RequestAndScan(RpcClient& client, const std::string& method, const Json::Value& params)
{
    ListenToLibrary(client);
    const auto start = Clock::now();
    Expect(client.Call(method, params, kScanTimeoutMs), method);
    for (;;) {
        Json::Value notification;
        if (!client.NextNotification(notification, "libraryScanNotification", kScanTimeoutMs)) {
            throw std::runtime_error("no libraryScanNotification after " + method);
        }
        const std::string state = notification["params"]["state"].asString();
        if (state == "scanning") {
            continue;
        }
        SScan scan;
        scan.seconds = Seconds(Clock::now() - start);
        scan.status = notification["params"];
        if (state != "ready") {
            throw std::runtime_error("scan ended " + Json::Rpc::ToWireText(notification));
        }
        return scan;
    }
}

SScan IndexAndScan(RpcClient& client, const std::string& stick)
{
    Json::Value params(Json::objectValue);
    params["usbStoragePath"] = stick;
    return RequestAndScan(client, "indexUsbStorage", params);
}

// The plug event of the first stick, as the device's USB monitor sends it.
Json::Value StickEvent(bool connected)
{
    Json::Value params(Json::objectValue);
    params["usbDevice"] = "usb1";
    params["usbConnected"] = connected;
    params["isSupported"] = true;
    params["isReadable"] = true;
    params["fsUUID"] = kStickUuid;
    return params;
}

SScan PlugAndScan(RpcClient& client)
{
    return RequestAndScan(client, "usbConnectionEvent", StickEvent(true));
}

void Unplug(RpcClient& client)
{
    Expect(client.Call("usbConnectionEvent", StickEvent(false), kScanTimeoutMs), "usbConnectionEvent");
    client.DrainNotifications(100);  // the library going idle
}

// Pings on a connection of its own, one every kPingInterval (a client's
// pace, not a load that would take a core from the scan), until stopped;
// keeps each round trip.
class Pinger {
public:
    explicit Pinger(int port)
    {
        if (!m_client.Connect(port)) {
            throw std::runtime_error("pinger cannot connect");
        }
        m_thread = std::thread([this] {
            const std::string ping = RequestText("ping", Json::Value());
            auto next = Clock::now();
            while (!m_stop) {
                m_times.push_back(RoundTrip(m_client, ping));
                next += kPingInterval;
                std::this_thread::sleep_until(next);
            }
        });
    }
    ~Pinger() { Stop(); }
    Pinger(const Pinger&) = delete;
    Pinger& operator=(const Pinger&) = delete;

    std::vector<double> Stop()
    {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_times;
    }

private:
    RpcClient m_client;
    std::atomic<bool> m_stop{false};
    std::vector<double> m_times;
    std::thread m_thread;
};

// The library's database files: every file of the state folder whose name
// holds "sqlite" or ".db", -wal and -shm included.
long long DatabaseBytes(const std::string& folder, int& files)
{
    long long bytes = 0;
    files = 0;
    for (const std::string& name : testing_support::FolderNames(folder)) {
        struct stat status {};
        if ((name.find("sqlite") == std::string::npos && name.find(".db") == std::string::npos) ||
            stat((folder + "/" + name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            continue;
        }
        bytes += status.st_size;
        ++files;
    }
    return bytes;
}

Json::Value Page(int start)
{
    Json::Value params(Json::objectValue);
    params["startIndex"] = start;
    params["itemCount"] = kPageSize;
    return params;
}

// The first scan of the tree, the re-indexes of the unchanged stick and
// ping's tail during the scan, against the references.
// One scan of the stick into the store at `database`, as the daemon's scan
// thread does it: the storage walk, then every file through CTagScanPass.
double ScanInProcess(const std::string& stick, const std::string& database, uint32_t& tracks)
{
    const auto start = Clock::now();
    CStorageIndex index;
    BuildStorageIndex(index, stick, EWalkScope::kSticksOnly);
    CTagStore store;
    if (index.m_errorCode != 0 || !store.Open(database) || !store.BeginScan()) {
        throw std::runtime_error("in-process scan: " + store.LastError());
    }
    const auto walked = Clock::now();
    const std::atomic<bool> stop{false};
    CTagScanPass pass(store, stop, [](uint32_t, uint32_t) {});
    if (pass.Run(index) != ETagScanEnd::kComplete) {
        throw std::runtime_error("in-process scan: " + store.LastError());
    }
    const auto fed = Clock::now();
    if (!store.EndScan(true)) {
        throw std::runtime_error("in-process scan: " + store.LastError());
    }
    const auto end = Clock::now();
    tracks = store.TrackCount();
    std::fprintf(stderr, "in-process scan: walk and open %s, files %s, end %s\n", Ms(Seconds(walked - start)).c_str(),
                 Ms(Seconds(fed - walked)).c_str(), Ms(Seconds(end - fed)).c_str());
    return Seconds(end - start);
}

// What the first scan is measured against, run by this program between its
// own scans so that all of them share the machine's load of the moment.
struct SReferences {
    std::string taglibLoop;  // the taglib_loop binary
    std::string mpdUpdate;   // bench/mpd_update.py
};

// Runs `command` and reads the seconds from its line "LABEL SECONDS ...".
double ReferenceSeconds(const std::string& command, const std::string& label)
{
    FILE* output = popen(command.c_str(), "r");
    if (output == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    char line[256];
    double seconds = -1;
    while (std::fgets(line, sizeof line, output) != nullptr) {
        std::fprintf(stderr, "%s", line);
        if (std::string(line).rfind(label + " ", 0) == 0) {
            seconds = std::atof(line + label.size() + 1);
        }
    }
    if (pclose(output) != 0 || seconds <= 0) {
        throw std::runtime_error("no figure from " + command);
    }
    return seconds;
}

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

// The first scans (the daemon's and the library's alone) beside their
// references, the re-indexes and re-plugs of the unchanged stick, and
// ping's tail during a scan.
void SmallStickRows(const TempDir& root, const std::string& stick, const std::string& tree,
                    const SReferences& references)
{
    const std::string stateFolder = root.Path() + kStateFolder;
    std::vector<double> taglibLoops;
    std::vector<double> mpdUpdates;
    std::vector<double> inProcessScans;
    std::vector<double> inProcessRescans;
    std::vector<double> firstScans;
    std::vector<double> reindexes;
    uint32_t tracks = 0;
    TempDir databases;
    for (int run = 0; run < kRuns; ++run) {
        taglibLoops.push_back(
            ReferenceSeconds("nice " + Quoted(references.taglibLoop) + " " + Quoted(tree), "taglib-loop"));
        const std::string database = databases / ("library-" + std::to_string(run) + ".sqlite");
        inProcessScans.push_back(ScanInProcess(stick, database, tracks));
        inProcessRescans.push_back(ScanInProcess(stick, database, tracks));
        mpdUpdates.push_back(ReferenceSeconds(
            "nice /usr/bin/python3 " + Quoted(references.mpdUpdate) + " " + Quoted(tree), "mpd-update"));

        testing_support::RemoveTree(stateFolder);
        DaemonProcess daemon(DaemonOptions(root));
        RpcClient client;
        Connect(client, daemon);
        const SScan scan = IndexAndScan(client, stick);
        firstScans.push_back(scan.seconds);
        tracks = scan.status["tracks"].asUInt();
        std::fprintf(stderr, "first scan: %s, %u tracks, %u artists, %u albums, %u genres\n", S(scan.seconds).c_str(),
                     tracks, scan.status["artists"].asUInt(), scan.status["albums"].asUInt(),
                     scan.status["genres"].asUInt());
        reindexes.push_back(IndexAndScan(client, stick).seconds);
        daemon.Stop(SIGTERM, kStopTimeoutMs);
    }
    const double taglibSeconds = Percentile(taglibLoops, 50);
    const double mpdSeconds = Percentile(mpdUpdates, 50);
    const double inProcess = Percentile(inProcessScans, 50);
    const double inProcessAgain = Percentile(inProcessRescans, 50);
    const double firstScan = Percentile(firstScans, 50);
    const double reindex = Percentile(reindexes, 50);
    std::vector<double> restarts;
    for (int run = 0; run < kRuns; ++run) {
        DaemonProcess daemon(DaemonOptions(root));
        RpcClient client;
        Connect(client, daemon);
        restarts.push_back(IndexAndScan(client, stick).seconds);
        daemon.Stop(SIGTERM, kStopTimeoutMs);
    }
    const double restart = Percentile(restarts, 50);
    std::vector<double> replugs;
    {
        // The stick's database is keyed by its file system UUID once a plug
        // event names it: the first plug reads it anew, the next ones not.
        DaemonProcess daemon(DaemonOptions(root));
        RpcClient client;
        Connect(client, daemon);
        std::fprintf(stderr, "first plug: %s\n", S(PlugAndScan(client).seconds).c_str());
        for (int run = 0; run < kRuns; ++run) {
            Unplug(client);
            replugs.push_back(PlugAndScan(client).seconds);
        }
        daemon.Stop(SIGTERM, kStopTimeoutMs);
    }
    const double replug = Percentile(replugs, 50);
    Row("first scan in process, " + std::to_string(tracks) + " tracks", S(inProcess),
        "bare TagLib loop " + S(taglibSeconds), Fixed("%.2f", inProcess / taglibSeconds), "-");
    Row("re-scan in process, unchanged files", Ms(inProcessAgain), "first scan in process " + S(inProcess),
        Fixed("%.2f %%", 100.0 * inProcessAgain / inProcess), "-");
    Row("first scan, " + std::to_string(tracks) + " tracks", S(firstScan), "mpd update " + S(mpdSeconds),
        Fixed("%.2f", firstScan / mpdSeconds), "<= 0.5");
    Row("first scan, " + std::to_string(tracks) + " tracks", S(firstScan), "bare TagLib loop " + S(taglibSeconds),
        Fixed("%.2f", firstScan / taglibSeconds), "<= 1.3");
    // The target is the re-plug's. An index also waits for the storage
    // index's own walk before its scan starts, and a stick named by its
    // checksum cannot have its database opened before a walk has ended.
    Row("re-index of the unchanged stick", Ms(reindex), "first scan " + S(firstScan),
        Fixed("%.2f %%", 100.0 * reindex / firstScan), "-");
    Row("index after a daemon restart, unchanged stick", Ms(restart), "first scan " + S(firstScan),
        Fixed("%.2f %%", 100.0 * restart / firstScan), "-");
    Row("re-plug of the unchanged stick (fsUUID)", Ms(replug), "first scan " + S(firstScan),
        Fixed("%.2f %%", 100.0 * replug / firstScan), "<= 5 %");

    // Ping's tail during a first scan, timed apart so the pings do not slow
    // the scan timed above: the databases go, and the stick is read anew.
    testing_support::RemoveTree(stateFolder);
    DaemonProcess daemon(DaemonOptions(root));
    RpcClient client;
    Connect(client, daemon);
    RoundTrips(client, RequestText("ping", Json::Value()), 300);  // warm up
    Pinger idle(daemon.Port());
    std::this_thread::sleep_for(kIdlePingTime);
    const std::vector<double> idleTimes = idle.Stop();
    Pinger busy(daemon.Port());
    IndexAndScan(client, stick);
    const std::vector<double> busyTimes = busy.Stop();
    const double idleP99 = Percentile(idleTimes, 99);
    const double busyP99 = Percentile(busyTimes, 99);
    std::fprintf(stderr, "pings every %lld ms: %zu idle, %zu during the scan\n",
                 static_cast<long long>(kPingInterval.count()), idleTimes.size(), busyTimes.size());
    Row("ping p99 during a first scan", Ms(busyP99), "idle ping p99 " + Ms(idleP99), Fixed("%.2f x", busyP99 / idleP99),
        "<= 2 x");
}

struct SQuery {
    const char* figure;
    std::string request;
};

// The query pages, the memory and the database size on the big stick.
void BigStickRows(const std::string& tree)
{
    TempDir root;
    const std::string stick = MakeStick(root, tree);
    DaemonProcess daemon(DaemonOptions(root));
    RpcClient client;
    Connect(client, daemon);
    const long rssBefore = ResidentKiB(daemon.Pid());

    // The folder index is built before indexUsbStorage replies and the scan
    // runs after: its reply splits the index's memory from the library's.
    Json::Value params(Json::objectValue);
    params["usbStoragePath"] = stick;
    ListenToLibrary(client);
    const auto start = Clock::now();
    Expect(client.Call("indexUsbStorage", params, kScanTimeoutMs), "indexUsbStorage");
    const long rssIndexed = ResidentKiB(daemon.Pid());
    Json::Value notification;
    while (client.NextNotification(notification, "libraryScanNotification", kScanTimeoutMs) &&
           notification["params"]["state"].asString() == "scanning") {
    }
    const double scanSeconds = Seconds(Clock::now() - start);
    const Json::Value status = notification["params"];
    if (status["state"].asString() != "ready") {
        throw std::runtime_error("big scan ended " + Json::Rpc::ToWireText(notification));
    }
    const uint32_t tracks = status["tracks"].asUInt();
    const long rssReady = ResidentKiB(daemon.Pid());
    std::fprintf(stderr, "big stick: %u tracks, %u artists, %u albums scanned in %s\n", tracks,
                status["artists"].asUInt(), status["albums"].asUInt(), S(scanSeconds).c_str());

    // IDs to ask for: an artist from the middle of the list, one of its albums.
    const Json::Value artists = Expect(client.Call("getArtistsUSB", Page(100)), "getArtistsUSB");
    const uint32_t artistId = artists["entries"][0]["ID"].asUInt();
    Json::Value byArtist = Page(0);
    byArtist["artistID"] = artistId;
    const Json::Value albums = Expect(client.Call("getAlbumsUSB", byArtist), "getAlbumsUSB");
    Json::Value byAlbum = Page(0);
    byAlbum["albumID"] = albums["entries"][0]["ID"].asUInt();
    Json::Value search = Page(0);
    search["text"] = "cafe";
    const Json::Value found = Expect(client.Call("searchLibraryUSB", search), "searchLibraryUSB");
    std::fprintf(stderr, "search \"cafe\": %u artists, %u albums, %u tracks\n", found["artists"]["totalCount"].asUInt(),
                found["albums"]["totalCount"].asUInt(), found["tracks"]["totalCount"].asUInt());

    const std::string ping = RequestText("ping", Json::Value());
    const std::vector<SQuery> queries = {
        {"getArtistsUSB 20 from 100, 50k tracks", RequestText("getArtistsUSB", Page(100))},
        {"getAlbumsUSB of an artist, 50k tracks", RequestText("getAlbumsUSB", byArtist)},
        {"getTracksUSB of an album, 50k tracks", RequestText("getTracksUSB", byAlbum)},
        {"searchLibraryUSB \"cafe\" 20, 50k tracks", RequestText("searchLibraryUSB", search)},
    };
    RoundTrips(client, ping, 300);  // warm up
    const double pingP50 = Percentile(RoundTrips(client, ping, kQueryRoundTrips), 50);
    for (const SQuery& query : queries) {
        RoundTrips(client, query.request, 20);
        const double p50 = Percentile(RoundTrips(client, query.request, kQueryRoundTrips), 50);
        Row(std::string(query.figure) + " p50", Ms(p50), "ping p50 " + Ms(pingP50), Fixed("%.1f x", p50 / pingP50),
            "<= 1 ms");
    }

    const long rssAfter = ResidentKiB(daemon.Pid());
    std::fprintf(stderr, "RSS KiB: %ld before the index, %ld at its reply, %ld when ready, %ld after the queries\n",
                 rssBefore, rssIndexed, rssReady, rssAfter);
    Row("daemon RSS added by the library, " + std::to_string(tracks / 1000) + "k tracks",
        Fixed("%.0f KiB", static_cast<double>(rssAfter - rssIndexed)),
        "index alone " + Fixed("%.0f KiB", static_cast<double>(rssIndexed - rssBefore)),
        Fixed("%.2f", static_cast<double>(rssAfter - rssIndexed) / std::max(1L, rssIndexed - rssBefore)),
        "<= 10 MB");

    // A clean stop closes the connections; SQLite then checkpoints the WAL.
    daemon.Stop(SIGTERM, kStopTimeoutMs);
    int files = 0;
    const long long bytes = DatabaseBytes(root.Path() + kStateFolder, files);
    Row("database bytes per track, " + std::to_string(tracks / 1000) + "k tracks",
        Fixed("%.0f B", static_cast<double>(bytes) / std::max(1u, tracks)),
        Fixed("%.1f MB", bytes / 1e6) + " in " + std::to_string(files) + (files == 1 ? " file" : " files"), "-", "<= 300 B");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: library_bench TREE BIG_TREE TAGLIB_LOOP MPD_UPDATE\n");
        return 2;
    }
    const SReferences references{argv[3], argv[4]};
    Row("figure", "value", "reference", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(48, '-').c_str(), std::string(14, '-').c_str(),
                std::string(32, '-').c_str(), std::string(12, '-').c_str(), std::string(12, '-').c_str());
    // The stick the in-process scan reads must lie where the daemon's would:
    // the reader opens only files on a stick.
    TempDir root;
    const std::string stick = MakeStick(root, argv[1]);
    setenv("USBMEDIA_ROOT", root.Path().c_str(), 1);
    SmallStickRows(root, stick, argv[1], references);
    BigStickRows(argv[2]);
    return 0;
}
