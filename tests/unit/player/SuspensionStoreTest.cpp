// The suspension snapshot on disk: what goes in comes back byte for byte,
// and a file that is not a whole snapshot is ignored with one log line.
#include "player/SuspensionStore.h"

#include "core/Logger.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <functional>
#include <random>

using testing_support::MakeDirs;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {
constexpr const char* kIgnoredLine = "Suspension snapshot ignored";

SStoredSuspension Sample(bool isPending)
{
    SStoredSuspension stored;
    SSuspensionData& data = stored.data;
    data.m_track.m_name = "caf\xE9 \xFF.mp3";
    data.m_track.m_path = "/mnt/usb-stick1/M\xFC" "sik";
    data.m_track.m_isFolder = false;
    data.m_track.m_id = 0xFEDCBA98;
    data.m_track.m_title = "Title \xA9";
    data.m_track.m_artist = "Artist";
    data.m_track.m_album = "Album";
    data.m_track.m_duration = 4000000000u;
    data.m_track.m_extra = "extra";
    data.m_usbDevice.m_deviceName = "usb1";
    data.m_usbDevice.m_isConnected = true;
    data.m_usbDevice.m_errorCode = "badFile";
    data.m_trackTime = 4294967295u;
    data.m_isShuffle = true;
    data.m_repeatMode = -7;
    data.m_playerState = 3;
    stored.isPending = isPending;
    return stored;
}

void ExpectSame(const SStoredSuspension& got, const SStoredSuspension& want)
{
    const CTrackInfo& a = got.data.m_track;
    const CTrackInfo& b = want.data.m_track;
    EXPECT_EQ(a.m_name, b.m_name);
    EXPECT_EQ(a.m_path, b.m_path);
    EXPECT_EQ(a.m_isFolder, b.m_isFolder);
    EXPECT_EQ(a.m_id, b.m_id);
    EXPECT_EQ(a.m_title, b.m_title);
    EXPECT_EQ(a.m_artist, b.m_artist);
    EXPECT_EQ(a.m_album, b.m_album);
    EXPECT_EQ(a.m_duration, b.m_duration);
    EXPECT_EQ(a.m_extra, b.m_extra);
    EXPECT_EQ(got.data.m_usbDevice.m_deviceName, want.data.m_usbDevice.m_deviceName);
    EXPECT_EQ(got.data.m_usbDevice.m_isConnected, want.data.m_usbDevice.m_isConnected);
    EXPECT_EQ(got.data.m_usbDevice.m_errorCode, want.data.m_usbDevice.m_errorCode);
    EXPECT_EQ(got.data.m_trackTime, want.data.m_trackTime);
    EXPECT_EQ(got.data.m_isShuffle, want.data.m_isShuffle);
    EXPECT_EQ(got.data.m_repeatMode, want.data.m_repeatMode);
    EXPECT_EQ(got.data.m_playerState, want.data.m_playerState);
    EXPECT_EQ(got.isPending, want.isPending);
}

class SuspensionStoreTest : public testing::Test {
protected:
    std::string Folder() const { return m_root / "var/lib/usb-media-service"; }
    CSuspensionStore Store() const { return CSuspensionStore(Folder()); }

    // Loads with the log going to a file; `log` gets what was written.
    std::optional<SStoredSuspension> LoadLogged(std::string& log) const
    {
        const std::string logPath = m_root / "log.txt";
        CLogger& logger = CLogger::GetInstance();
        logger.SetLevel(LOG_WARN);
        EXPECT_TRUE(logger.OpenFile(logPath.c_str()));
        std::optional<SStoredSuspension> stored = Store().Load();
        logger.CloseFile();
        log = ReadFile(logPath);
        return stored;
    }

    // The file holds `contents`: it is ignored, with exactly one log line.
    void ExpectIgnored(const std::string& contents, const std::string& what)
    {
        WriteFile(Store().FilePath(), contents);
        std::string log;
        EXPECT_FALSE(LoadLogged(log).has_value()) << what;
        size_t lines = 0;
        for (size_t at = log.find(kIgnoredLine); at != std::string::npos; at = log.find(kIgnoredLine, at + 1)) {
            ++lines;
        }
        EXPECT_EQ(lines, 1u) << what << "\n" << log;
    }

    TempDir m_root;
};
}  // namespace

TEST_F(SuspensionStoreTest, RoundTripKeepsEveryField)
{
    for (const bool isPending : {false, true}) {
        const SStoredSuspension stored = Sample(isPending);
        ASSERT_TRUE(Store().Save(stored));
        std::string log;
        const std::optional<SStoredSuspension> loaded = LoadLogged(log);
        ASSERT_TRUE(loaded.has_value()) << log;
        ExpectSame(*loaded, stored);
        EXPECT_EQ(log, "");
    }
}

TEST_F(SuspensionStoreTest, EveryByteOfANameComesBack)
{
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    SStoredSuspension stored = Sample(false);
    stored.data.m_track.m_name = everyByte;
    stored.data.m_track.m_path = "/mnt/usb-stick1/\xC3\xA9";  // bytes that look like UTF-8 stay two bytes
    ASSERT_TRUE(Store().Save(stored));
    const std::optional<SStoredSuspension> loaded = Store().Load();
    ASSERT_TRUE(loaded.has_value());
    EXPECT_EQ(loaded->data.m_track.m_name, everyByte);
    EXPECT_EQ(loaded->data.m_track.m_path, "/mnt/usb-stick1/\xC3\xA9");
}

TEST_F(SuspensionStoreTest, FolderIsMadePrivateAndTheFileReplacedWhole)
{
    ASSERT_TRUE(Store().Save(Sample(false)));
    struct stat status {};
    ASSERT_EQ(stat(Folder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    ASSERT_EQ(stat(Store().FilePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);

    SStoredSuspension second = Sample(true);
    second.data.m_track.m_name = "other.wma";
    ASSERT_TRUE(Store().Save(second));
    ExpectSame(*Store().Load(), second);
    // Nothing left beside it from the write.
    struct stat temporary {};
    EXPECT_NE(stat((Store().FilePath() + ".tmp").c_str(), &temporary), 0);
}

TEST_F(SuspensionStoreTest, RemoveForgetsAndNoFileMeansNothingQuietly)
{
    std::string log;
    EXPECT_FALSE(LoadLogged(log).has_value());
    EXPECT_EQ(log, "");
    Store().Remove();  // nothing there: fine

    ASSERT_TRUE(Store().Save(Sample(false)));
    Store().Remove();
    EXPECT_FALSE(LoadLogged(log).has_value());
    EXPECT_EQ(log, "");
}

TEST_F(SuspensionStoreTest, SaveWhereNoFolderCanBeMadeFails)
{
    WriteFile(m_root / "var", "a file where a folder should be");
    EXPECT_FALSE(Store().Save(Sample(false)));
}

TEST_F(SuspensionStoreTest, EmptyFileIsIgnored)
{
    ExpectIgnored("", "empty");
}

TEST_F(SuspensionStoreTest, TornFileIsIgnoredAtEveryLength)
{
    const std::string whole = SuspensionToText(Sample(true));
    // The last byte is the newline after the object: without it the text is whole.
    for (size_t length = 1; length + 1 < whole.size(); ++length) {
        ExpectIgnored(whole.substr(0, length), "cut at " + std::to_string(length));
    }
}

TEST_F(SuspensionStoreTest, GarbageIsIgnored)
{
    std::mt19937 generator(4242);
    std::string noise(3000, '\0');
    for (char& byte : noise) {
        byte = static_cast<char>(generator() & 0xFF);
    }
    ExpectIgnored(noise, "random bytes");
    ExpectIgnored(std::string(100, '\0'), "zeros");
    ExpectIgnored("[1,2,3]", "an array");
    ExpectIgnored("{}", "an empty object");
    ExpectIgnored("null", "null");

    // Whole JSON, but not a snapshot of this layout.
    const std::string whole = SuspensionToText(Sample(false));
    const auto edited = [&whole](const std::string& from, const std::string& to) {
        std::string text = whole;
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    ExpectIgnored(edited("\"format\":1", "\"format\":2"), "another format");
    ExpectIgnored(edited("\"trackTime\":4294967295", "\"trackTime\":-1"), "a negative time");
    ExpectIgnored(edited("\"trackTime\":4294967295", "\"trackTime\":\"1\""), "a time as text");
    ExpectIgnored(edited("\"playerState\":3", "\"playerState\":3.5"), "a fractional state");
    ExpectIgnored(edited("\"isShuffle\":true", "\"isShuffle\":1"), "a number for a flag");
    ExpectIgnored(edited("\"name\":\"usb1\"", "\"name\":\"usb\\u20ac\""), "a character above U+00FF");
    ExpectIgnored(edited("\"name\":\"usb1\"", "\"nom\":\"usb1\""), "a member missing");
    ExpectIgnored(whole + "{}", "something after the object");
}

TEST_F(SuspensionStoreTest, FileOverTheBoundIsIgnoredAtTheBoundRead)
{
    const std::string whole = SuspensionToText(Sample(false));
    // Spaces after the object keep it valid JSON: only the size decides.
    const std::string atBound = whole + std::string(CSuspensionStore::kMaxFileBytes - whole.size(), ' ');
    WriteFile(Store().FilePath(), atBound);
    EXPECT_TRUE(Store().Load().has_value());
    ExpectIgnored(atBound + " ", "one byte over");
    ExpectIgnored(whole + std::string(4 * 1024 * 1024, ' '), "four megabytes");
}

TEST_F(SuspensionStoreTest, FolderInPlaceOfTheFileIsIgnored)
{
    MakeDirs(Store().FilePath());
    std::string log;
    EXPECT_FALSE(LoadLogged(log).has_value());
    EXPECT_NE(log.find(kIgnoredLine), std::string::npos) << log;
}
