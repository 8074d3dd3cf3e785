// Storage index benchmark: builds a 50,000-file stick under a temp dir and
// measures, in one run, the daemon's indexUsbStorage against `find | wc -l`
// on the same warm tree, getFileListByGroupID on a cache miss (against the
// index build) and on a cache hit (against ping), and the daemon's resident
// memory added by the index. Figures are printed, never asserted.

#include "BenchRequest.h"
#include "BenchRows.h"

#include "library/FileId.h"
#include "library/StorageIndex.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/ProcessStatus.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::ResidentKiB;
using testing_support::RpcClient;
using testing_support::TempDir;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kArtists = 25;
constexpr int kAlbumsPerArtist = 99;  // 25 + 25 * 99 = 2,500 folders
constexpr int kTracksPerAlbum = 20;
constexpr int kPageFolderTracks = 100;  // one album holds 100 entries
constexpr int kTotalFiles = 50000;
constexpr int kPageSize = 20;
constexpr int kRuns = 5;
constexpr int kRoundTrips = 200;

std::string Name(const char* format, int number)
{
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

void MakeDir(const std::string& path)
{
    if (mkdir(path.c_str(), 0755) != 0) {
        throw std::runtime_error("mkdir " + path);
    }
}

void MakeFile(const std::string& path)
{
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    if (fd < 0 || write(fd, "ID3", 3) != 3) {
        throw std::runtime_error("create " + path);
    }
    close(fd);
}

void MakeTracks(const std::string& folder, int count, int& made)
{
    for (int track = 1; track <= count; ++track, ++made) {
        MakeFile(folder + Name("/Track %03d - Some Title.mp3", track));
    }
}

// The stick: 25 artists with 99 albums each, 20 tracks per album except
// the page folder's 100, and the rest of the 50,000 files at the top.
std::string MakeStick(const std::string& root, std::string& pageFolder)
{
    const std::string stick = root + "/mnt/usb-stick1";
    MakeDir(root + "/mnt");
    MakeDir(stick);
    int made = 0;
    for (int artist = 0; artist < kArtists; ++artist) {
        const std::string artistPath = stick + Name("/Artist %02d", artist);
        MakeDir(artistPath);
        for (int album = 0; album < kAlbumsPerArtist; ++album) {
            const std::string albumPath = artistPath + Name("/Album %03d", album);
            MakeDir(albumPath);
            const bool isPageFolder = artist == 0 && album == 0;
            MakeTracks(albumPath, isPageFolder ? kPageFolderTracks : kTracksPerAlbum, made);
            if (isPageFolder) {
                pageFolder = albumPath;
            }
        }
    }
    MakeTracks(stick, kTotalFiles - made, made);
    return stick;
}

double Seconds(Clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double MedianTime(int runs, const std::function<void()>& action)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        action();
        times.push_back(Seconds(Clock::now() - start));
    }
    return Median(times);
}

void RunFind(const std::string& stick)
{
    const std::string command = "find '" + stick + "' -type f | wc -l > /dev/null";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("find failed");
    }
}

Json::Value Expect(const Json::Value& reply, const char* what)
{
    if (reply.isMember("error") || reply.isNull()) {
        throw std::runtime_error(std::string(what) + " failed");
    }
    return reply;
}

// One request written as prepared text and its reply line read back
// unparsed: the client's JSON work is not the daemon's cost.
void RawRoundTrip(RpcClient& client, const std::string& request, const char* what)
{
    std::string reply;
    if (!client.SendRaw(request) || !client.ReadLine(reply, 30000) ||
        reply.find("\"error\"") != std::string::npos) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

Json::Value GroupPage(uint32_t groupId)
{
    Json::Value params(Json::objectValue);
    params["groupID"] = groupId;
    params["itemCount"] = kPageSize;
    params["startIndex"] = 40;
    params["isMaxDepth"] = false;
    return params;
}

}  // namespace

int main()
{
    TempDir root;
    std::string pageFolder;
    std::printf("Generating %d audio files in %d folders under %s ...\n", kTotalFiles,
                kArtists * (1 + kAlbumsPerArtist), root.Path().c_str());
    const std::string stick = MakeStick(root.Path(), pageFolder);

    RunFind(stick);  // warm the tree
    const double findTime = MedianTime(kRuns, [&] { RunFind(stick); });

    // The library alone, in this process.
    CStorageIndex directIndex;
    const double directTime = MedianTime(kRuns, [&] { BuildStorageIndex(directIndex, stick); });
    const size_t entries = directIndex.Size();

    DaemonProcess::Options options;
    options.environment["USBMEDIA_ROOT"] = root.Path();
    DaemonProcess daemon(options);
    RpcClient client;
    if (!client.Connect(daemon.Port())) {
        throw std::runtime_error("cannot connect to the daemon");
    }
    Json::Value indexParams(Json::objectValue);
    indexParams["usbStoragePath"] = stick;
    const long rssBefore = ResidentKiB(daemon.Pid());
    Expect(client.Call("indexUsbStorage", indexParams, 120000), "indexUsbStorage");
    const long rssFirst = ResidentKiB(daemon.Pid());
    const double indexTime = MedianTime(kRuns, [&] {
        Expect(client.Call("indexUsbStorage", indexParams, 120000), "indexUsbStorage");
    });
    const long rssAfter = ResidentKiB(daemon.Pid());

    // The page folder changes on disk after the index: a listing that still
    // shows 100 entries came from the index, not the disk.
    MakeFile(pageFolder + "/Added after the index.mp3");
    const uint32_t pageGroup = FileId(stick + "/Artist 00", "Album 000");
    const uint32_t otherGroup = FileId(stick + "/Artist 01", "Album 001");
    // Each miss follows a request for another folder; only the miss is timed.
    const std::string missRequest = RequestText("getFileListByGroupID", GroupPage(pageGroup));
    std::vector<double> misses;
    for (int i = 0; i < kRoundTrips / 4; ++i) {
        Expect(client.Call("getFileListByGroupID", GroupPage(otherGroup)), "other folder");
        std::string raw;
        const auto start = Clock::now();
        if (!client.SendRaw(missRequest) || !client.ReadLine(raw, 30000)) {
            throw std::runtime_error("page failed");
        }
        misses.push_back(Seconds(Clock::now() - start));
        const Json::Value reply = Expect(testing_support::ParseLine(raw), "page");
        if (reply["result"]["totalCount"].asInt() != kPageFolderTracks ||
            reply["result"]["filelist"].size() != static_cast<unsigned>(kPageSize)) {
            throw std::runtime_error("unexpected page: the listing did not come from the index");
        }
    }
    const double missTime = Median(misses);

    Expect(client.Call("getFileListByGroupID", GroupPage(pageGroup)), "page");
    const std::string pageRequest = RequestText("getFileListByGroupID", GroupPage(pageGroup));
    const std::string pingRequest = RequestText("ping", Json::Value());
    const double hitTime = MedianTime(kRoundTrips, [&] { RawRoundTrip(client, pageRequest, "page"); });
    const double pingTime = MedianTime(kRoundTrips, [&] { RawRoundTrip(client, pingRequest, "ping"); });

    const double indexedEntries = static_cast<double>(entries);
    const double bytesFirst = (rssFirst - rssBefore) * 1024.0 / indexedEntries;
    const double bytesAfter = (rssAfter - rssBefore) * 1024.0 / indexedEntries;

    std::printf("\nIndexed entries: %zu (%d files + %d folders); medians of %d index runs, %d page round trips\n\n",
                entries, kTotalFiles, kArtists * (1 + kAlbumsPerArtist), kRuns, kRoundTrips);
    Row("figure", "value", "reference", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(16, '-').c_str(),
                std::string(28, '-').c_str(), std::string(14, '-').c_str(), std::string(12, '-').c_str());
    Row("indexUsbStorage through the daemon", Ms(indexTime), "find + wc -l " + Ms(findTime),
        Fixed("%.2f", indexTime / findTime), "<= 1.0");
    Row("BuildStorageIndex in process (library)", Ms(directTime), "find + wc -l " + Ms(findTime),
        Fixed("%.2f", directTime / findTime), "-");
    Row("getFileListByGroupID 20 of 100, cache miss", Ms(missTime), "index build " + Ms(indexTime),
        Fixed("%.2f %%", 100.0 * missTime / indexTime), "<= 1 %");
    Row("getFileListByGroupID 20 of 100, cache hit", Ms(hitTime), "ping " + Ms(pingTime),
        Fixed("%.2f x", hitTime / pingTime), "<= 3 x");
    Row("daemon RSS added by the first index", Fixed("%.0f KiB", rssFirst - rssBefore), "per indexed entry",
        Fixed("%.0f B", bytesFirst), "<= 150 B");
    Row("daemon RSS added after 6 index builds", Fixed("%.0f KiB", rssAfter - rssBefore), "per indexed entry",
        Fixed("%.0f B", bytesAfter), "<= 150 B");
    std::printf("\nCache miss reads the disk: no (a file added after the index is not listed)\n");
    return 0;
}
