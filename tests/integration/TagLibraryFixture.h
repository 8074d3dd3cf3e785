#pragma once

// Shared set-up of the tag library's wire tests: the device tests' fake root
// with the daemon's state folder pinned inside it, sticks of tagged audio,
// and the waits on libraryScanNotification the scans are followed by.

#include "tests/integration/DeviceFixture.h"

#include <json/value.h>

#include <chrono>
#include <string>
#include <vector>

namespace tag_library_test {

// One libraryScanNotification and when the test read it.
struct SScanNotice {
    Json::Value status;  // its params
    std::chrono::steady_clock::time_point arrival;
};

class TagLibraryTest : public device_test::DeviceTest {
protected:
    // The folder the daemon keeps the sticks' databases in.
    std::string StateFolder() const { return m_root / "var/lib/usb-media-service"; }

    // Starts the daemon with its state folder in the test's root.
    void StartLibraryDaemon();

    // getLibraryStatusUSB's result.
    Json::Value Status();
    // Reads libraryScanNotification until one with `state` (appended to
    // `seen` when given, with those before it); null when none came.
    Json::Value WaitForScan(const std::string& state, std::vector<SScanNotice>* seen = nullptr);
    // indexUsbStorage of the first stick, then the end of its scan, which
    // must be "ready"; the final status.
    Json::Value IndexStickAndWaitUntilReady();
    // usbConnectionEvent: `device` plugged in, readable, with `uuid` as
    // "fsUUID" (left out when empty).
    Json::Value Plug(const std::string& device, const std::string& uuid = "");
    Json::Value Unplug(const std::string& device);

    // The result of `method` with `params` plus "startIndex" and "itemCount".
    Json::Value Page(const std::string& method, int startIndex, int itemCount, Json::Value params = Json::objectValue);
    // Every entry of a list (one page of 1000).
    Json::Value All(const std::string& method, Json::Value params = Json::objectValue);

    // The database files in the state folder (tags-*.sqlite), sorted.
    std::vector<std::string> DatabaseFiles() const;
};

// The compact wire text of `value`, without the line end, for exact comparisons.
std::string Compact(const Json::Value& value);

// `member` of each entry of a page.
std::vector<std::string> Texts(const Json::Value& page, const std::string& member);
// The entry of `page` whose `member` is `value` (and "artist" `artist` when
// given); null when none.
Json::Value EntryNamed(const Json::Value& page, const std::string& member, const std::string& value,
                       const std::string& artist = "");

// `count` MP3 files "fNNN/tNNNNN.mp3" below `root`, `perFolder` to a folder,
// made in one python3 run: a folder's files are one short MP3 tagged as its
// album "Album NNN" by "Artist N" (of seven, by folder), titled "Song NNN".
void MakeTaggedCopies(const std::string& root, int count, int perFolder);

// PRAGMA integrity_check of the SQLite file at `path` through python3's
// sqlite3 module: "ok", or what it found.
std::string IntegrityCheck(const std::string& path);

}  // namespace tag_library_test
