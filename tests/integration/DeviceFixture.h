#pragma once

// Shared set-up of the device tests: a fake file system root with the two
// stick mounts and the art directory's parent, audio files made at test
// time, and the daemon started on that root with one client connected.

#include "tests/support/WireFixture.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace device_test {

// A track long enough to be still playing when the last request of a test
// is served, even with both cores busy.
constexpr double kLongTrackSeconds = 120.0;

struct TrackTags {
    std::string title;
    std::string artist;
    std::string album;
    std::string coverPath;    // a JPEG to embed as the front cover, or ""
    std::string previewPath;  // a JPEG to embed as the file icon (a preview image), or ""
};

// Audio made with gst-launch-1.0 (and python3-mutagen for ID3 tags).
void MakeMp3(const std::string& path, double seconds, const TrackTags& tags = TrackTags());
void MakeWav(const std::string& path, double seconds, bool withTags);
// WMA as the demo stick has it: wmav2 in ASF, texts written by mutagen.
void MakeWma(const std::string& path, double seconds, const TrackTags& tags = TrackTags());
// A WAV whose format chunk is too short to describe any audio: the parser
// fails with a demux error.
void MakeBrokenHeaderWav(const std::string& path);
// Bytes that no decoder recognises.
void MakeCorruptFile(const std::string& path, size_t size);
// Seconds from `start` to now.
inline double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// `folders` folders "folderN" of `filesEach` empty files "trackN.mp3" below
// `root`.
void MakeWideTree(const std::string& root, int folders, int filesEach);
// A small JPEG (32x24), made once per process; its path.
const std::string& CoverJpeg();
// Another JPEG (16x16), made once per process; its path.
const std::string& IconJpeg();

class DeviceTest : public testing_support::WireFixture {
protected:
    DeviceTest();

    std::string Stick1() const { return m_root / "mnt/usb-stick1"; }
    std::string Stick2() const { return m_root / "mnt/usb-stick2"; }
    std::string ArtDirectory() const { return m_root / "home/root/art_dump"; }

    // Starts the daemon on the fake root (all log levels on unless other
    // arguments are given) and connects.
    // `environment` adds to (or overrides) the variables every test daemon gets;
    // `maxDescriptors` limits its descriptor table (0: no limit of its own).
    void StartDaemon(const std::vector<std::string>& arguments = {"-l", "a"},
                     const std::map<std::string, std::string>& environment = {}, int maxDescriptors = 0);

    Json::Value UsbEvent(const std::string& device, bool connected, bool supported = true,
                         bool readable = true);

    // Waits until getCurrentTrackInfoUSB names `fileName` and reports playing.
    bool WaitForPlayingFile(const std::string& fileName, int timeoutMs = testing_support::kWireTimeoutMs);
    // True when no notification named `method` arrives within `quietMs`.
    bool NoNotification(const std::string& method, int quietMs = 1500);
    // All notifications up to and including the first one named `last`.
    std::vector<Json::Value> NotificationsUntil(const std::string& last,
                                                int timeoutMs = testing_support::kWireTimeoutMs);

    int PlayerState();
    // Asks for the playing track's cover (getTrackAlbumArt) and returns the
    // art file its trackAlbumArtNotification names, which must be for the
    // first track of the playlist.
    std::string RequestArt();

    // The notifications of a stop for an unreadable file, up to its report:
    // the emptied track (no name, no path, not playing), then "usb1" reported
    // disconnected with "badFile" (the daemon's output on failure).
    void ExpectBadFileNotifications(int timeoutMs = testing_support::kWireTimeoutMs);
    // The daemon's resident memory in KiB (-1 when unreadable).
    long ResidentKiB() const;

    // The user and group StartDaemon runs the daemon as; 0: the test's own.
    uid_t m_daemonUser = 0;
    gid_t m_daemonGroup = 0;
};

// How many of `notifications` are named `method`.
size_t CountNamed(const std::vector<Json::Value>& notifications, const std::string& method);

}  // namespace device_test
