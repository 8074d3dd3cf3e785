#pragma once

// The JSON-RPC notifications the service pushes to its clients, built from
// plain values: {"jsonrpc":"2.0","method":NAME,"params":{...}}, no "id".

#include <json/value.h>

#include <cstdint>
#include <string>

// The fields of a "trackInfo" object, texts already in the clients' UTF-8.
struct STrackInfoValues {
    std::string title;
    std::string artist;
    std::string album;
    uint32_t index = 0;  // 1-based, 0 with no playlist
    uint32_t count = 0;
    uint32_t time = 0;
    uint32_t duration = 0;
    bool isPlaying = false;
    std::string filePath;
    std::string fileName;
    uint32_t id = 0;
};

// The "trackInfo" object, shared by trackInfoNotification and the
// getCurrentTrackInfoUSB reply.
Json::Value BuildTrackInfoObject(const STrackInfoValues& track);

Json::Value BuildTrackInfoNotification(const STrackInfoValues& track);
Json::Value BuildTrackAlbumArtNotification(uint32_t trackIndex, const std::string& artFilePath);
Json::Value BuildPlayerStateChangedNotification(int32_t playerState);
Json::Value BuildRepeatModeChangedNotification(int32_t mode);
Json::Value BuildShuffleModeChangedNotification(bool enabled);
Json::Value BuildTrackTimeNotification(uint32_t trackTime, uint32_t trackDuration);
Json::Value BuildEndOfPlayListNotification();
Json::Value BuildUsbConnectionNotification(const std::string& deviceName, bool connected,
                                           const std::string& errorCode);

struct SLibraryStatus;

// The tag library's status object, shared by libraryScanNotification and
// the getLibraryStatusUSB reply.
Json::Value BuildLibraryStatusObject(const SLibraryStatus& status);

Json::Value BuildLibraryScanNotification(const SLibraryStatus& status);
