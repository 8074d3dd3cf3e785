#include "tools/WatchFormatter.h"

#include "tools/Formatting.h"
#include "tools/LibraryReports.h"
#include "tools/Replies.h"

namespace usbctl {

namespace {
constexpr int kBarWidth = 30;

std::string TrackLine(const Json::Value& info)
{
    std::string title = info["trackTitle"].asString();
    if (title.empty()) {
        title = info["fileName"].asString();
    }
    std::string line = "track " + std::to_string(info["trackIndex"].asUInt()) + "/" +
                       std::to_string(info["trackCount"].asUInt()) + ": \"" + title + "\"";
    const std::string artist = info["trackArtist"].asString();
    if (!artist.empty()) {
        line += " by " + artist;
    }
    const std::string album = info["trackAlbum"].asString();
    if (!album.empty()) {
        line += ", album \"" + album + "\"";
    }
    const unsigned duration = info["trackDuration"].asUInt();
    if (duration > 0) {
        line += " (" + FormatClock(duration) + ")";
    }
    return line;
}

std::string AlbumArtLine(const Json::Value& params)
{
    const std::string path = params["artFilePath"].asString();
    return "album art: " + (path.empty() ? std::string("(no file written)") : path) + " (track " +
           std::to_string(params["trackIndex"].asUInt()) + ")";
}

std::string UsbLine(const Json::Value& params)
{
    std::string line = "usb " + params["usbDeviceName"].asString() + ": " +
                       (params["connected"].asBool() ? "connected" : "disconnected");
    const std::string errorCode = params["errorCode"].asString();
    if (!errorCode.empty()) {
        line += " (" + errorCode + ")";
    }
    return line;
}
}  // namespace

std::string TimeLine(int64_t seconds, int64_t duration, bool withBar)
{
    std::string line = "time " + FormatTimeOfDuration(seconds, duration);
    if (withBar) {
        line += " " + ProgressBar(seconds, duration, kBarWidth);
    }
    return line;
}

namespace {
std::string ReadableLine(const Json::Value& notification)
{
    if (!notification.isObject()) {
        return CompactJson(notification);
    }
    const std::string method = notification["method"].asString();
    const Json::Value& params = notification["params"];
    if (!params.isNull() && !params.isObject()) {
        return method + ": " + CompactJson(params);
    }
    if (method == "trackInfoNotification") {
        return TrackLine(params["trackInfo"]);
    }
    if (method == "trackTimeNotification") {
        return TimeLine(params["trackTime"].asUInt(), params["trackDuration"].asUInt(), false);
    }
    if (method == "playerStateChangedNotification") {
        return "state: " + StateName(params["playerState"].asInt());
    }
    if (method == "trackAlbumArtNotification") {
        return AlbumArtLine(params);
    }
    if (method == "repeatModeChangedNotification") {
        return "repeat: " + RepeatModeName(params["mode"].asInt());
    }
    if (method == "shuffleModeChangedNotification") {
        return "shuffle: " + OnOff(params["enabled"].asBool());
    }
    if (method == "endOfPlayListNotification") {
        return "end of playlist";
    }
    if (method == "usbConnectionNotification") {
        return UsbLine(params);
    }
    if (method == "libraryScanNotification") {
        return LibraryStatusLine(params);
    }
    return method + ": " + CompactJson(params);
}
}  // namespace

std::string NotificationLine(const Json::Value& notification)
{
    try {
        return ReadableLine(notification);
    } catch (const Json::Exception&) {
        return CompactJson(notification);  // a member of an unexpected type
    }
}

std::string WatchFormatter::Format(const Json::Value& notification)
{
    const bool isTime = notification.isObject() && notification["method"] == "trackTimeNotification" &&
                        notification["params"].isObject();
    if (m_terminal && isTime) {
        try {
            return FormatTimeInPlace(notification["params"]);
        } catch (const Json::Exception&) {
            // not a time after all: written as a plain line below
        }
    }
    return Finish() + NotificationLine(notification) + "\n";
}

std::string WatchFormatter::Finish()
{
    if (!m_timeLineOpen) {
        return "";
    }
    m_timeLineOpen = false;
    m_timeLineWidth = 0;
    return "\n";
}

std::string WatchFormatter::FormatTimeInPlace(const Json::Value& params)
{
    std::string line = TimeLine(params["trackTime"].asUInt(), params["trackDuration"].asUInt(), true);
    const size_t width = line.size();
    if (width < m_timeLineWidth) {
        line.append(m_timeLineWidth - width, ' ');  // blank out the longer previous line
    }
    m_timeLineOpen = true;
    m_timeLineWidth = width;
    return "\r" + line;
}

}  // namespace usbctl
