#include "tests/integration/DeviceFixture.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/ProcessStatus.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

using testing_support::DaemonProcess;
using testing_support::MakeDirs;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace device_test {

namespace {
using Clock = std::chrono::steady_clock;
constexpr int kSampleRate = 22050;
constexpr int kSamplesPerBuffer = 1024;

// Runs a program with its output discarded; throws when it fails.
void Run(std::vector<std::string> argv)
{
    testing_support::SChildOptions options;
    options.discardOutput = true;
    const std::string what = argv[0] + " " + argv.back();
    if (!testing_support::RunToEnd(std::move(argv), options).succeeded) {
        throw std::runtime_error("command failed: " + what);
    }
}

std::string Buffers(double seconds)
{
    const long count = std::lround(seconds * kSampleRate / kSamplesPerBuffer);
    return "num-buffers=" + std::to_string(count < 1 ? 1 : count);
}

std::vector<std::string> ToneSource(double seconds)
{
    return {"gst-launch-1.0", "-q", "audiotestsrc", Buffers(seconds),
            "samplesperbuffer=" + std::to_string(kSamplesPerBuffer), "!",
            "audio/x-raw,format=S16LE,rate=" + std::to_string(kSampleRate) + ",channels=1", "!",
            "audioconvert", "!"};
}

// ID3v2 frames written by python3-mutagen (the system interpreter, which is
// where the Debian package installs it).
constexpr const char* kTagScript = R"(
import sys
from mutagen.id3 import ID3, TIT2, TPE1, TALB, APIC
path, title, artist, album, cover, icon = sys.argv[1:7]
tags = ID3()
if title: tags.add(TIT2(encoding=3, text=title))
if artist: tags.add(TPE1(encoding=3, text=artist))
if album: tags.add(TALB(encoding=3, text=album))
if cover:
    with open(cover, 'rb') as image:
        tags.add(APIC(encoding=3, mime='image/jpeg', type=3, desc='Cover', data=image.read()))
if icon:
    with open(icon, 'rb') as image:
        tags.add(APIC(encoding=3, mime='image/jpeg', type=1, desc='Icon', data=image.read()))
tags.save(path)
)";

constexpr const char* kAsfTagScript = R"(
import sys
from mutagen.asf import ASF
path, title, artist, album = sys.argv[1:5]
media = ASF(path)
if title: media["Title"] = title
if artist: media["Author"] = artist
if album: media["WM/AlbumTitle"] = album
media.save()
)";

bool HasTags(const TrackTags& tags)
{
    return !tags.title.empty() || !tags.artist.empty() || !tags.album.empty() || !tags.coverPath.empty() ||
           !tags.previewPath.empty();
}
}  // namespace

void MakeMp3(const std::string& path, double seconds, const TrackTags& tags)
{
    // Encoded under a plain name: the "location" property wants UTF-8, while
    // test files may carry ISO8859-1 names.
    const std::string directory = path.substr(0, path.rfind('/'));
    const std::string encoded = directory + "/encoding.tmp";
    MakeDirs(directory);
    std::vector<std::string> command = ToneSource(seconds);
    command.insert(command.end(), {"lamemp3enc", "target=bitrate", "bitrate=32", "cbr=true", "!",
                                   "filesink", "location=" + encoded});
    Run(command);
    if (HasTags(tags)) {
        Run({"/usr/bin/python3", "-c", kTagScript, encoded, tags.title, tags.artist, tags.album,
             tags.coverPath, tags.previewPath});
    }
    if (std::rename(encoded.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot rename to " + path);
    }
}

void MakeWav(const std::string& path, double seconds, bool withTags)
{
    MakeDirs(path.substr(0, path.rfind('/')));
    std::vector<std::string> command = ToneSource(seconds);
    if (withTags) {
        command.insert(command.end(),
                       {"taginject", "tags=title=WaveTitle,artist=WaveArtist,album=WaveAlbum", "!"});
    }
    command.insert(command.end(), {"wavenc", "!", "filesink", "location=" + path});
    Run(command);
}

void MakeWma(const std::string& path, double seconds, const TrackTags& tags)
{
    const std::string directory = path.substr(0, path.rfind('/'));
    const std::string encoded = directory + "/encoding.tmp";
    MakeDirs(directory);
    std::vector<std::string> command = ToneSource(seconds);
    command.insert(command.end(), {"avenc_wmav2", "!", "avmux_asf", "!", "filesink", "location=" + encoded});
    Run(command);
    if (HasTags(tags)) {
        Run({"/usr/bin/python3", "-c", kAsfTagScript, encoded, tags.title, tags.artist, tags.album});
    }
    if (std::rename(encoded.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot rename to " + path);
    }
}

void MakeBrokenHeaderWav(const std::string& path)
{
    // RIFF/WAVE with a 4-byte "fmt " chunk (a PCM format needs 16), then data.
    std::string bytes("RIFF\x2c\x00\x00\x00WAVEfmt \x04\x00\x00\x00\x01\x00\x02\x00", 24);
    bytes += std::string("data\x10\x00\x00\x00", 8) + std::string(16, '\x01');
    WriteFile(path, bytes);
}

void MakeCorruptFile(const std::string& path, size_t size)
{
    std::mt19937 generator(12345);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(generator() & 0xFF);
    }
    WriteFile(path, bytes);
}

void MakeWideTree(const std::string& root, int folders, int filesEach)
{
    for (int f = 0; f < folders; ++f) {
        const std::string folder = root + "/folder" + std::to_string(f);
        MakeDirs(folder);
        for (int i = 0; i < filesEach; ++i) {
            const std::string path = folder + "/track" + std::to_string(i) + ".mp3";
            const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0) << path;
            ::close(fd);
        }
    }
}

const std::string& CoverJpeg()
{
    static TempDir directory;
    static const std::string path = [] {
        const std::string jpeg = directory / "cover.jpg";
        Run({"gst-launch-1.0", "-q", "videotestsrc", "num-buffers=1", "!",
             "video/x-raw,width=32,height=24", "!", "jpegenc", "!", "filesink", "location=" + jpeg});
        return jpeg;
    }();
    return path;
}

const std::string& IconJpeg()
{
    static TempDir directory;
    static const std::string path = [] {
        const std::string jpeg = directory / "icon.jpg";
        Run({"gst-launch-1.0", "-q", "videotestsrc", "pattern=snow", "num-buffers=1", "!",
             "video/x-raw,width=16,height=16", "!", "jpegenc", "!", "filesink", "location=" + jpeg});
        return jpeg;
    }();
    return path;
}

DeviceTest::DeviceTest()
{
    MakeDirs(Stick1());
    MakeDirs(Stick2());
    MakeDirs(m_root / "home/root");
}

void DeviceTest::StartDaemon(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment, int maxDescriptors)
{
    DaemonProcess::Options options;
    options.arguments = arguments;
    options.maxDescriptors = maxDescriptors;
    // mpg123audiodec and the libav decoder share a rank; pin one so runs are
    // alike (the libav one also trips ThreadSanitizer inside FFmpeg).
    options.environment["GST_PLUGIN_FEATURE_RANK"] = "mpg123audiodec:MAX";
    for (const auto& [name, value] : environment) {
        options.environment[name] = value;
    }
    options.user = m_daemonUser;
    options.group = m_daemonGroup;
    StartDaemonWith(options);
}

Json::Value DeviceTest::UsbEvent(const std::string& device, bool connected, bool supported, bool readable)
{
    Json::Value params;
    params["usbDevice"] = device;
    params["usbConnected"] = connected;
    params["isSupported"] = supported;
    params["isReadable"] = readable;
    return Call("usbConnectionEvent", params);
}

bool DeviceTest::WaitForPlayingFile(const std::string& fileName, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        const Json::Value info = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
        if (info["fileName"].asString() == fileName && info["isPlaying"].asBool()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

bool DeviceTest::NoNotification(const std::string& method, int quietMs)
{
    Json::Value notification;
    return !m_client.NextNotification(notification, method, quietMs);
}

std::vector<Json::Value> DeviceTest::NotificationsUntil(const std::string& last, int timeoutMs)
{
    std::vector<Json::Value> seen;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Json::Value notification;
    while (Clock::now() < deadline) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (!m_client.NextNotification(notification, "", static_cast<int>(left.count()) + 1)) {
            break;
        }
        seen.push_back(notification);
        if (notification["method"].asString() == last) {
            break;
        }
    }
    return seen;
}

std::string DeviceTest::RequestArt()
{
    const Json::Value reply = Call("getTrackAlbumArt");
    EXPECT_EQ(reply["result"], true) << reply.toStyledString();
    Json::Value notification;
    if (!NextNotification(notification, "trackAlbumArtNotification")) {
        return "<no trackAlbumArtNotification>";
    }
    EXPECT_EQ(notification["params"]["trackIndex"], 1) << notification.toStyledString();
    return notification["params"]["artFilePath"].asString();
}

int DeviceTest::PlayerState()
{
    return Call("getCurrentPlayerState")["result"]["playerState"].asInt();
}

void DeviceTest::ExpectBadFileNotifications(int timeoutMs)
{
    const std::vector<Json::Value> seen = NotificationsUntil("usbConnectionNotification", timeoutMs);
    ASSERT_GE(seen.size(), 2u) << m_daemon->Output();
    const Json::Value& report = seen.back();
    ASSERT_EQ(report["method"], "usbConnectionNotification") << m_daemon->Output();
    Json::Value expected;
    expected["usbDeviceName"] = "usb1";
    expected["connected"] = false;
    expected["errorCode"] = "badFile";
    EXPECT_EQ(report["params"], expected) << report.toStyledString();

    // Before the report: the stop, and the emptied track.
    const Json::Value& info = seen[seen.size() - 2];
    ASSERT_EQ(info["method"], "trackInfoNotification") << info.toStyledString();
    EXPECT_EQ(info["params"]["trackInfo"]["fileName"], "") << info.toStyledString();
    EXPECT_EQ(info["params"]["trackInfo"]["filePath"], "") << info.toStyledString();
    EXPECT_FALSE(info["params"]["trackInfo"]["isPlaying"].asBool()) << info.toStyledString();
}

long DeviceTest::ResidentKiB() const
{
    return testing_support::ResidentKiB(m_daemon->Pid());
}

size_t CountNamed(const std::vector<Json::Value>& notifications, const std::string& method)
{
    size_t count = 0;
    for (const Json::Value& notification : notifications) {
        count += notification["method"].asString() == method ? 1 : 0;
    }
    return count;
}

}  // namespace device_test
