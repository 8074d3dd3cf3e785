#include "player/NotificationBuilders.h"

#include "library/TagLibrary.h"

namespace {
Json::Value Envelope(const char* method, const Json::Value& params)
{
    Json::Value notification(Json::objectValue);
    notification["jsonrpc"] = "2.0";
    notification["method"] = method;
    notification["params"] = params;
    return notification;
}
}  // namespace

Json::Value BuildTrackInfoObject(const STrackInfoValues& track)
{
    Json::Value info(Json::objectValue);
    info["trackTitle"] = track.title;
    info["trackArtist"] = track.artist;
    info["trackAlbum"] = track.album;
    info["trackIndex"] = Json::UInt(track.index);
    info["trackCount"] = Json::UInt(track.count);
    info["trackTime"] = Json::UInt(track.time);
    info["trackDuration"] = Json::UInt(track.duration);
    info["isPlaying"] = track.isPlaying;
    info["filePath"] = track.filePath;
    info["fileName"] = track.fileName;
    info["ID"] = Json::UInt(track.id);
    return info;
}

Json::Value BuildTrackInfoNotification(const STrackInfoValues& track)
{
    Json::Value params(Json::objectValue);
    params["trackInfo"] = BuildTrackInfoObject(track);
    return Envelope("trackInfoNotification", params);
}

Json::Value BuildTrackAlbumArtNotification(uint32_t trackIndex, const std::string& artFilePath)
{
    Json::Value params(Json::objectValue);
    params["trackIndex"] = Json::UInt(trackIndex);
    params["artFilePath"] = artFilePath;
    return Envelope("trackAlbumArtNotification", params);
}

Json::Value BuildPlayerStateChangedNotification(int32_t playerState)
{
    Json::Value params(Json::objectValue);
    params["playerState"] = Json::Int(playerState);
    return Envelope("playerStateChangedNotification", params);
}

Json::Value BuildRepeatModeChangedNotification(int32_t mode)
{
    Json::Value params(Json::objectValue);
    params["mode"] = Json::Int(mode);
    return Envelope("repeatModeChangedNotification", params);
}

Json::Value BuildShuffleModeChangedNotification(bool enabled)
{
    Json::Value params(Json::objectValue);
    params["enabled"] = enabled;
    return Envelope("shuffleModeChangedNotification", params);
}

Json::Value BuildTrackTimeNotification(uint32_t trackTime, uint32_t trackDuration)
{
    Json::Value params(Json::objectValue);
    params["trackTime"] = Json::UInt(trackTime);
    params["trackDuration"] = Json::UInt(trackDuration);
    return Envelope("trackTimeNotification", params);
}

Json::Value BuildEndOfPlayListNotification()
{
    Json::Value params(Json::objectValue);
    params["isEndOfPlaylist"] = true;
    return Envelope("endOfPlayListNotification", params);
}

Json::Value BuildUsbConnectionNotification(const std::string& deviceName, bool connected,
                                           const std::string& errorCode)
{
    Json::Value params(Json::objectValue);
    params["usbDeviceName"] = deviceName;
    params["connected"] = connected;
    params["errorCode"] = errorCode;
    return Envelope("usbConnectionNotification", params);
}

Json::Value BuildLibraryStatusObject(const SLibraryStatus& status)
{
    Json::Value object(Json::objectValue);
    object["state"] = LibraryStateName(status.state);
    object["scanned"] = Json::UInt(status.scanned);
    object["total"] = Json::UInt(status.total);
    object["tracks"] = Json::UInt(status.counts.tracks);
    object["artists"] = Json::UInt(status.counts.artists);
    object["albums"] = Json::UInt(status.counts.albums);
    object["genres"] = Json::UInt(status.counts.genres);
    return object;
}

Json::Value BuildLibraryScanNotification(const SLibraryStatus& status)
{
    return Envelope("libraryScanNotification", BuildLibraryStatusObject(status));
}
