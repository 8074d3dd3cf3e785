// The daemon reads only the sticks. Every path a client sends that leads
// anywhere else ("/etc", "../" out of the stick, a link on the stick to "/"
// or to a file outside) is answered byte for byte as a path that does not
// exist, so the reply tells nothing of it. Run as an unprivileged user, the
// daemon shows nothing of a folder that user may not read: no names, no
// playback, no cover written to the art folder.

#include "tests/integration/DeviceFixture.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

using device_test::DeviceTest;
using device_test::MakeMp3;
using device_test::TrackTags;
using testing_support::MakeDirs;
using testing_support::ReadFile;

namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNogroup = 65534;

void Replace(std::string& text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// A reply with its "id" set to 0 and the folder it names (`shown`, as the
// daemon writes it into "While opendir ...") set to PATH.
std::string Masked(std::string reply, const std::string& shown)
{
    Replace(reply, "opendir " + shown + "\"", "opendir PATH\"");
    const std::string key = "\"id\":";
    const size_t digits = reply.find(key);
    if (digits != std::string::npos) {
        const size_t start = digits + key.size();
        reply.replace(start, reply.find_first_not_of("0123456789", start) - start, "0");
    }
    return reply;
}

// How a folder play names its folder: the path without trailing "/" (one
// "/" stays), "/", then the name.
std::string FolderShown(std::string path, const std::string& name)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path + "/" + name;
}

// Every name in `directory` but "." and "..".
std::vector<std::string> Names(const std::string& directory)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(directory.c_str()), closedir);
    while (folder) {
        const dirent* entry = readdir(folder.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

class ConfinementTest : public DeviceTest {
protected:
    // The stick: "Open" with a track whose cover is IconJpeg, "Private"
    // (0700, root's) with a 0600 track whose cover is CoverJpeg, a link to
    // "/" and one to a track outside the stick. The tree above it is
    // readable by everyone, so an unprivileged daemon gets as far as the
    // stick.
    void MakeStick()
    {
        const std::string cover = device_test::CoverJpeg();
        const std::string icon = device_test::IconJpeg();
        MakeMp3(Stick1() + "/Open/open.mp3", device_test::kLongTrackSeconds, TrackTags{"Open", "Artist", "Album", icon, ""});
        MakeMp3(Stick1() + "/Private/secret.mp3", device_test::kLongTrackSeconds, TrackTags{"Secret", "Artist", "Album", cover, ""});
        MakeMp3(m_root / "outside/outside.mp3", device_test::kLongTrackSeconds, TrackTags{"Outside", "Artist", "Album", cover, ""});
        ASSERT_EQ(symlink("/", (Stick1() + "/ToRoot").c_str()), 0);
        ASSERT_EQ(symlink((m_root / "outside/outside.mp3").c_str(), (Stick1() + "/ToFile.mp3").c_str()), 0);
        ASSERT_EQ(symlink((m_root / "outside").c_str(), (Stick1() + "/Open/ToOutside").c_str()), 0);
        // Beside the sticks, a folder whose name starts like the first one's.
        testing_support::WriteFile(m_root / "mnt/usb-stick10/x.mp3", "abc");
        MakeDirs(ArtDirectory());
        for (const std::string& folder : {m_root.Path(), m_root / "mnt", Stick1(), Stick2(), m_root / "mnt/usb-stick10", m_root / "home",
                                          m_root / "home/root", Stick1() + "/Open", m_root / "outside"}) {
            ASSERT_EQ(chmod(folder.c_str(), 0755), 0) << folder;
        }
        for (const std::string& file : {Stick1() + "/Open/open.mp3", m_root / "outside/outside.mp3"}) {
            ASSERT_EQ(chmod(file.c_str(), 0644), 0) << file;
        }
        ASSERT_EQ(chmod((Stick1() + "/Private").c_str(), 0700), 0);
        ASSERT_EQ(chmod((Stick1() + "/Private/secret.mp3").c_str(), 0600), 0);
    }

    // Starts the daemon as uid 65534 with a home of its own (GStreamer keeps
    // its registry there) and an art folder it may write.
    void StartUnprivileged()
    {
        const std::string home = m_root / "home/nobody";
        MakeDirs(home);
        const std::string registry = home + "/registry.bin";
        const std::string ownRegistry = std::string(getenv("HOME") != nullptr ? getenv("HOME") : "/root") +
                                        "/.cache/gstreamer-1.0/registry.x86_64.bin";
        if (access(ownRegistry.c_str(), R_OK) == 0) {
            testing_support::WriteFile(registry, ReadFile(ownRegistry));  // spares a plugin scan
        }
        for (const std::string& path : {home, registry, ArtDirectory()}) {
            ASSERT_EQ(lchown(path.c_str(), kNobody, kNogroup), 0) << path;
        }
        m_daemonUser = kNobody;
        m_daemonGroup = kNogroup;
        StartDaemon({"-l", "a"}, {{"HOME", home}, {"XDG_CACHE_HOME", home + "/.cache"}, {"GST_REGISTRY", registry}});
    }

    Json::Value RawParams(const std::string& key, const std::string& value)
    {
        Json::Value params(Json::objectValue);
        params[key] = value;
        return params;
    }

    std::string IndexRaw(const std::string& path) { return CallRaw("indexUsbStorage", RawParams("usbStoragePath", path)); }

    std::string BrowseRaw(const std::string& path)
    {
        Json::Value params = RawParams("path", path);
        params["itemCount"] = 100;
        params["startIndex"] = 0;
        return CallRaw("getFileListUSB", params);
    }

    std::string PlayRaw(const std::string& path, const std::string& name, bool isFolder)
    {
        Json::Value params;
        params["file"]["name"] = name;
        params["file"]["path"] = path;
        params["file"]["isFolder"] = isFolder;
        return CallRaw("playFileUSB", params);
    }

    // Indexes the stick again, so each probe starts from the same index.
    void Reindex()
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }

    // Every method that takes a path answers `path` as it answers a folder
    // of the stick that does not exist.
    void ExpectAnsweredAsMissing(const std::string& path)
    {
        const std::string missing = Stick1() + "/NoSuchFolder";
        SCOPED_TRACE("path " + path);

        ASSERT_NO_FATAL_FAILURE(Reindex());
        const std::string indexed = IndexRaw(path);
        ASSERT_NO_FATAL_FAILURE(Reindex());
        EXPECT_EQ(Masked(indexed, path), Masked(IndexRaw(missing), missing)) << indexed;
        EXPECT_NE(indexed.find("\"code\":-1"), std::string::npos) << indexed;

        ASSERT_NO_FATAL_FAILURE(Reindex());
        const std::string listed = BrowseRaw(path);
        EXPECT_EQ(Masked(listed, path), Masked(BrowseRaw(missing), missing)) << listed;
        EXPECT_NE(listed.find("\"code\":-10"), std::string::npos) << listed;

        const std::string folder = PlayRaw(path, "", true);
        EXPECT_EQ(Masked(folder, FolderShown(path, "")), Masked(PlayRaw(missing, "", true), FolderShown(missing, "")))
            << folder;
        EXPECT_NE(folder.find("\"code\":-1"), std::string::npos) << folder;

        // A file in a folder that cannot be scanned is not found: the whole
        // stick plays instead, the same either way.
        const std::string file = PlayRaw(path, "secret.mp3", false);
        EXPECT_EQ(Masked(file, path), Masked(PlayRaw(missing, "secret.mp3", false), missing)) << file;
        EXPECT_TRUE(WaitForPlayingFile("open.mp3")) << file;
    }

    void ExpectOutsidePathsAnsweredAsMissing()
    {
        for (const std::string& path :
             {std::string("/etc"), std::string("/root/.ssh"), std::string("/"), Stick1() + "/../../../etc",
              std::string("/nonexistent"), Stick1() + "/ToRoot", Stick1() + "/ToRoot/etc",
              Stick1() + "/Open/ToOutside", m_root / "mnt/usb-stick10"}) {
            ASSERT_NO_FATAL_FAILURE(ExpectAnsweredAsMissing(path));
        }
        // The links on the stick are not listed, and a link to a file outside
        // does not play: it is a file the folder does not hold.
        ASSERT_NO_FATAL_FAILURE(Reindex());
        for (const std::string& folder : {Stick1(), Stick1() + "/Open"}) {
            for (const std::string& name : PageNames(Browse(folder))) {
                EXPECT_EQ(name.find("To"), std::string::npos) << name;
            }
        }
        const std::string linked = PlayRaw(Stick1(), "ToFile.mp3", false);
        EXPECT_EQ(Masked(linked, ""), Masked(PlayRaw(Stick1(), "NoSuchFile.mp3", false), "")) << linked;
        EXPECT_TRUE(WaitForPlayingFile("open.mp3")) << linked;
    }

    static std::vector<std::string> PageNames(const Json::Value& reply)
    {
        std::vector<std::string> names;
        for (const Json::Value& entry : reply["result"]["filelist"]) {
            names.push_back(entry["name"].asString());
        }
        return names;
    }

    void ExpectNoSecretArt()
    {
        const std::string secretCover = ReadFile(device_test::CoverJpeg());
        for (const std::string& name : Names(ArtDirectory())) {
            EXPECT_NE(ReadFile(ArtDirectory() + "/" + name), secretCover) << name;
        }
    }
};

}  // namespace

TEST_F(ConfinementTest, AFolderTheServiceMayNotReadShowsNothing)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: the daemon is started as uid 65534 beside a folder only root may read";
    }
    if (!testing_support::DaemonProcess::EmulatorPrefix().empty()) {
        // The board test runs the unprivileged service on the device itself.
        GTEST_SKIP() << "under the emulator the target's libraries lie in root's cache, which uid 65534 cannot read";
    }
    ASSERT_NO_FATAL_FAILURE(MakeStick());
    ASSERT_NO_FATAL_FAILURE(StartUnprivileged());
    const std::string status = ReadFile("/proc/" + std::to_string(m_daemon->Pid()) + "/status");
    ASSERT_NE(status.find("\nUid:\t65534\t65534\t65534"), std::string::npos) << status;

    // The walk cannot open the folder: it holds nothing for the index.
    ASSERT_NO_FATAL_FAILURE(Reindex());
    EXPECT_EQ(PageNames(Browse(Stick1())), (std::vector<std::string>{"Open"}));
    const std::string privateFolder = Stick1() + "/Private";
    const std::string missing = Stick1() + "/NoSuchFolder";
    const std::string listed = BrowseRaw(privateFolder);
    EXPECT_EQ(Masked(listed, ""), Masked(BrowseRaw(missing), "")) << listed;

    // No playback of the folder or of its file: the file is not found, the
    // stick plays from its first folder instead.
    const std::string folder = PlayRaw(Stick1(), "Private", true);
    EXPECT_EQ(Masked(folder, privateFolder), Masked(PlayRaw(Stick1(), "NoSuchFolder", true), missing)) << folder;
    const std::string file = PlayRaw(privateFolder, "secret.mp3", false);
    EXPECT_EQ(Masked(file, ""), Masked(PlayRaw(missing, "secret.mp3", false), "")) << file;
    ASSERT_TRUE(WaitForPlayingFile("open.mp3")) << file;
    const Json::Value track = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(track["filePath"], Stick1() + "/Open") << track.toStyledString();

    // The art written is the playing track's own cover, never the folder's.
    const std::string art = RequestArt();
    EXPECT_EQ(ReadFile(art), ReadFile(device_test::IconJpeg())) << art;
    ExpectNoSecretArt();

    const std::string indexed = IndexRaw(privateFolder);
    EXPECT_EQ(Masked(indexed, privateFolder), Masked(IndexRaw(missing), missing)) << indexed;

    ASSERT_NO_FATAL_FAILURE(ExpectOutsidePathsAnsweredAsMissing());
    ExpectNoSecretArt();
}

TEST_F(ConfinementTest, PathsOutsideTheSticksAreAnsweredAsMissingOnesEvenToRoot)
{
    ASSERT_NO_FATAL_FAILURE(MakeStick());
    StartDaemon();
    ASSERT_NO_FATAL_FAILURE(ExpectOutsidePathsAnsweredAsMissing());
}

TEST_F(ConfinementTest, ALinkWithinTheStickStillLeadsToItsFolder)
{
    ASSERT_NO_FATAL_FAILURE(MakeStick());
    ASSERT_EQ(symlink("Open", (Stick1() + "/Alias").c_str()), 0);
    StartDaemon();

    const Json::Value indexed = Index(Stick1() + "/Alias");
    EXPECT_TRUE(indexed["result"]["success"].asBool()) << indexed.toStyledString();
    EXPECT_EQ(PageNames(Browse(Stick1() + "/Alias")), (std::vector<std::string>{"open.mp3"}));
    const Json::Value played = PlayFolder(Stick1(), "Alias");
    EXPECT_TRUE(played["result"]["success"].asBool()) << played.toStyledString();
    EXPECT_TRUE(WaitForPlayingFile("open.mp3"));
    const Json::Value track = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(track["filePath"], Stick1() + "/Alias") << track.toStyledString();
}
