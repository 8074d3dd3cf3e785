#include "player/SuspensionStore.h"

#include "core/Environment.h"

#include "core/Logger.h"
#include "core/PosixHandles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
// Raised when the layout changes; a file of another layout is ignored.
constexpr int kFormat = 1;

// ISO8859-1 bytes as UTF-8 text, by hand: iconv may be out of reach exactly
// when the service is short of descriptors, and this mapping is exact.
std::string BytesToText(const std::string& bytes)
{
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
            continue;
        }
        text += static_cast<char>(0xC0 | (byte >> 6));
        text += static_cast<char>(0x80 | (byte & 0x3F));
    }
    return text;
}

// The reverse: only characters up to U+00FF, each in its shortest form, or
// nothing (the file was not written by BytesToText).
std::optional<std::string> TextToBytes(const std::string& text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            bytes += text[i];
            continue;
        }
        if ((lead != 0xC2 && lead != 0xC3) || i + 1 == text.size()) {
            return std::nullopt;
        }
        const auto next = static_cast<unsigned char>(text[++i]);
        if ((next & 0xC0) != 0x80) {
            return std::nullopt;
        }
        bytes += static_cast<char>(((lead & 0x03) << 6) | (next & 0x3F));
    }
    return bytes;
}

// Reads members of one object, remembering the first thing that was wrong.
class CMemberReader {
public:
    CMemberReader(const Json::Value& object, std::string& reason) : m_object(object), m_reason(reason) {}

    void Bytes(const char* key, std::string& out)
    {
        const Json::Value* value = Find(key, &Json::Value::isString);
        if (value == nullptr) {
            return;
        }
        std::optional<std::string> bytes = TextToBytes(value->asString());
        if (!bytes) {
            Fail(key, "a text of other than single-byte characters");
            return;
        }
        out = std::move(*bytes);
    }
    void Bool(const char* key, bool& out)
    {
        if (const Json::Value* value = Find(key, &Json::Value::isBool)) {
            out = value->asBool();
        }
    }
    void Unsigned(const char* key, uint32_t& out)
    {
        if (const Json::Value* value = Find(key, &Json::Value::isUInt)) {
            out = value->asUInt();
        }
    }
    void Signed(const char* key, int32_t& out)
    {
        if (const Json::Value* value = Find(key, &Json::Value::isInt)) {
            out = value->asInt();
        }
    }
    const Json::Value& Object(const char* key)
    {
        const Json::Value* value = Find(key, &Json::Value::isObject);
        return value != nullptr ? *value : Json::Value::nullSingleton();
    }

private:
    const Json::Value* Find(const char* key, bool (Json::Value::*isRightType)() const)
    {
        if (!m_reason.empty()) {
            return nullptr;
        }
        const Json::Value* value = m_object.isObject() ? m_object.find(key, key + std::strlen(key)) : nullptr;
        if (value == nullptr || !(value->*isRightType)()) {
            Fail(key, "missing or of the wrong type");
            return nullptr;
        }
        return value;
    }
    void Fail(const char* key, const char* what) { m_reason = std::string("\"") + key + "\" " + what; }

    const Json::Value& m_object;
    std::string& m_reason;
};

Json::Value TrackValue(const CTrackInfo& track)
{
    Json::Value value(Json::objectValue);
    value["name"] = BytesToText(track.m_name);
    value["path"] = BytesToText(track.m_path);
    value["isFolder"] = track.m_isFolder;
    value["id"] = track.m_id;
    value["title"] = BytesToText(track.m_title);
    value["artist"] = BytesToText(track.m_artist);
    value["album"] = BytesToText(track.m_album);
    value["duration"] = track.m_duration;
    value["extra"] = BytesToText(track.m_extra);
    return value;
}

Json::Value DeviceValue(const CUsbDeviceStatus& device)
{
    Json::Value value(Json::objectValue);
    value["name"] = BytesToText(device.m_deviceName);
    value["connected"] = device.m_isConnected;
    value["errorCode"] = BytesToText(device.m_errorCode);
    return value;
}

void ReadTrack(const Json::Value& object, CTrackInfo& track, std::string& reason)
{
    CMemberReader read(object, reason);
    read.Bytes("name", track.m_name);
    read.Bytes("path", track.m_path);
    read.Bool("isFolder", track.m_isFolder);
    read.Unsigned("id", track.m_id);
    read.Bytes("title", track.m_title);
    read.Bytes("artist", track.m_artist);
    read.Bytes("album", track.m_album);
    read.Unsigned("duration", track.m_duration);
    read.Bytes("extra", track.m_extra);
}

void ReadDevice(const Json::Value& object, CUsbDeviceStatus& device, std::string& reason)
{
    CMemberReader read(object, reason);
    read.Bytes("name", device.m_deviceName);
    read.Bool("connected", device.m_isConnected);
    read.Bytes("errorCode", device.m_errorCode);
}

std::string ErrnoText(const char* step)
{
    return std::string(step) + ": " + std::strerror(errno);
}

bool WriteAll(int fd, const std::string& text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        done += static_cast<size_t>(written);
    }
    return true;
}

// Reads at most `limit` + 1 bytes, so a larger file is told by its size.
bool ReadBounded(int fd, size_t limit, std::string& text)
{
    text.resize(limit + 1);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t got = read(fd, &text[done], text.size() - done);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    text.resize(done);
    return true;
}
}  // namespace

std::string SuspensionToText(const SStoredSuspension& stored)
{
    const SSuspensionData& data = stored.data;
    Json::Value root(Json::objectValue);
    root["format"] = kFormat;
    root["isPending"] = stored.isPending;
    root["track"] = TrackValue(data.m_track);
    root["usbDevice"] = DeviceValue(data.m_usbDevice);
    root["trackTime"] = data.m_trackTime;
    root["isShuffle"] = data.m_isShuffle;
    root["repeatMode"] = data.m_repeatMode;
    root["playerState"] = data.m_playerState;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, root) + "\n";
}

std::optional<SStoredSuspension> SuspensionFromText(const std::string& text, std::string& reason)
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors)) {
        reason = "not JSON";
        return std::nullopt;
    }
    reason.clear();
    CMemberReader read(root, reason);
    int32_t format = 0;
    read.Signed("format", format);
    if (reason.empty() && format != kFormat) {
        reason = "format " + std::to_string(format);
    }
    SStoredSuspension stored;
    SSuspensionData& data = stored.data;
    read.Bool("isPending", stored.isPending);
    ReadTrack(read.Object("track"), data.m_track, reason);
    ReadDevice(read.Object("usbDevice"), data.m_usbDevice, reason);
    read.Unsigned("trackTime", data.m_trackTime);
    read.Bool("isShuffle", data.m_isShuffle);
    read.Signed("repeatMode", data.m_repeatMode);
    read.Signed("playerState", data.m_playerState);
    if (!reason.empty()) {
        return std::nullopt;
    }
    return stored;
}

CSuspensionStore::CSuspensionStore(std::string directory) : m_directory(std::move(directory))
{
}

std::string CSuspensionStore::FilePath() const
{
    return m_directory + "/" + kFileName;
}

bool CSuspensionStore::Save(const SStoredSuspension& stored) const
{
    const std::string path = FilePath();
    const std::string temporary = path + ".tmp";
    std::string failure;
    if (!MakeStateDirectory(m_directory)) {
        failure = ErrnoText("mkdir");
    } else {
        UniqueFd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!file.IsValid()) {
            failure = ErrnoText("open");
        } else if (!WriteAll(file.Get(), SuspensionToText(stored))) {
            failure = ErrnoText("write");
        } else if (fsync(file.Get()) != 0) {
            failure = ErrnoText("fsync");
        } else if (!file.Close()) {
            failure = ErrnoText("close");
        } else if (rename(temporary.c_str(), path.c_str()) != 0) {
            failure = ErrnoText("rename");
        }
    }
    if (!failure.empty()) {
        unlink(temporary.c_str());
        LOG(LOG_WARN, "Suspension snapshot not saved to %s (%s)\n", path.c_str(), failure.c_str());
        return false;
    }
    // The rename lasts only once the folder's entry is on the disk.
    const UniqueFd folder(open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsValid()) {
        fsync(folder.Get());
    }
    return true;
}

std::optional<SStoredSuspension> CSuspensionStore::Load() const
{
    const std::string path = FilePath();
    // O_NONBLOCK: a fifo put there must not hold up the start.
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    const int openError = file.IsValid() ? 0 : errno;
    if (openError == ENOENT) {
        return std::nullopt;
    }
    std::string reason;
    std::string text;
    struct stat status {};
    if (openError != 0) {
        reason = std::string("open: ") + std::strerror(openError);
    } else if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        reason = "not a regular file";
    } else if (!ReadBounded(file.Get(), kMaxFileBytes, text)) {
        reason = ErrnoText("read");
    } else if (text.size() > kMaxFileBytes) {
        reason = "larger than " + std::to_string(kMaxFileBytes) + " bytes";
    } else if (text.empty()) {
        reason = "empty";
    }
    std::optional<SStoredSuspension> stored;
    if (reason.empty()) {
        stored = SuspensionFromText(text, reason);
    }
    if (!stored) {
        LOG(LOG_WARN, "Suspension snapshot ignored: %s (%s)\n", path.c_str(), reason.c_str());
    }
    return stored;
}

void CSuspensionStore::Remove() const
{
    const std::string path = FilePath();
    if (unlink(path.c_str()) != 0) {
        if (errno != ENOENT) {
            LOG(LOG_WARN, "Suspension snapshot not removed: %s (%s)\n", path.c_str(), std::strerror(errno));
        }
        return;
    }
    const UniqueFd folder(open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsValid()) {
        fsync(folder.Get());
    }
}
