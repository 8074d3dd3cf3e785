#include "tools/Reports.h"

#include "tools/Formatting.h"

#include <algorithm>
#include <cstdio>

namespace usbctl {

std::string ReportField(const std::string& label, const std::string& value)
{
    std::string line = label + ":";
    line.resize(std::max<size_t>(line.size() + 1, 10), ' ');
    return line + value + "\n";
}

namespace {

// The file's full path; empty when there is no file name.
std::string JoinPath(const std::string& folder, const std::string& name)
{
    if (name.empty()) {
        return "";
    }
    if (folder.empty() || folder.back() == '/') {
        return folder + name;
    }
    return folder + "/" + name;
}

std::string TrackPosition(const Json::Value& info)
{
    const unsigned count = info["trackCount"].asUInt();
    if (count == 0) {
        return "none";
    }
    return std::to_string(info["trackIndex"].asUInt()) + " of " + std::to_string(count);
}

std::string UsbText(const Json::Value& usb)
{
    std::string text = usb["connected"].asBool() ? "connected" : "not connected";
    const std::string errorCode = usb["errorCode"].asString();
    if (!errorCode.empty()) {
        text += " (" + errorCode + ")";
    }
    return text;
}

std::string EntryLine(const Json::Value& entry)
{
    char id[16];
    std::snprintf(id, sizeof id, "%10u", entry["ID"].asUInt());
    const std::string name = entry["name"].asString() + (entry["isFolder"].asBool() ? "/" : "");
    return std::string(id) + "  " + name + "\n";
}

std::string Footer(long long first, long long count, long long total, long long pageSize)
{
    if (count == 0) {
        return "no entries (" + std::to_string(total) + " in all)\n";
    }
    const long long page = first / pageSize + 1;
    return "entries " + std::to_string(first + 1) + "-" + std::to_string(first + count) + " of " +
           std::to_string(total) + " (page " + std::to_string(page) + " of " +
           std::to_string(PageCount(total, pageSize)) + ")\n";
}
}  // namespace

std::string FormatStatus(const StatusResults& results)
{
    const Json::Value& info = results.trackInfo["trackInfo"];
    std::string text;
    text += ReportField("state", StateName(results.playerState["playerState"].asInt()));
    text += ReportField("track", TrackPosition(info));
    text += ReportField("title", info["trackTitle"].asString());
    text += ReportField("artist", info["trackArtist"].asString());
    text += ReportField("album", info["trackAlbum"].asString());
    text += ReportField("time", FormatTimeOfDuration(info["trackTime"].asUInt(), info["trackDuration"].asUInt()));
    text += ReportField("file", JoinPath(info["filePath"].asString(), info["fileName"].asString()));
    text += ReportField("repeat", RepeatModeName(results.repeat["mode"].asInt()));
    text += ReportField("shuffle", OnOff(results.shuffle["enabled"].asBool()));
    text += ReportField("usb1", UsbText(results.usb));
    return text;
}

long long PageCount(long long total, long long pageSize)
{
    if (total <= 0 || pageSize <= 0) {
        return 1;
    }
    return (total + pageSize - 1) / pageSize;
}

std::string FormatListing(const Json::Value& result, long long pageSize)
{
    const Json::Value& entries = result["filelist"];
    std::string text;
    if (entries.isArray() && !entries.empty()) {
        text += entries[0]["path"].asString() + "\n";
    }
    Json::ArrayIndex count = 0;
    if (entries.isArray()) {
        for (const Json::Value& entry : entries) {
            text += EntryLine(entry);
        }
        count = entries.size();
    }
    return text + Footer(result["currIndex"].asUInt(), count, result["totalCount"].asInt64(), pageSize);
}

std::string FormatSuspension(const Json::Value& suspensionData)
{
    if (!suspensionData["isSuspended"].asBool()) {
        return "no suspended track\n";
    }
    std::string text;
    text += ReportField("file", JoinPath(suspensionData["filePath"].asString(), suspensionData["fileName"].asString()));
    text += ReportField("time", FormatClock(suspensionData["trackTime"].asUInt()));
    text += ReportField("state", StateName(suspensionData["playerState"].asInt()));
    text += ReportField("repeat", RepeatModeName(suspensionData["repeatMode"].asInt()));
    text += ReportField("shuffle", OnOff(suspensionData["isShuffleOn"].asBool()));
    return text;
}

}  // namespace usbctl
