#pragma once

#include <json/value.h>

#include <string>

namespace usbctl {

// The "result" members of the replies that make up `status`.
struct StatusResults {
    Json::Value playerState;  // getCurrentPlayerState
    Json::Value trackInfo;    // getCurrentTrackInfoUSB
    Json::Value repeat;       // getRepeatModeUSB
    Json::Value shuffle;      // isShuffleEnabledUSB
    Json::Value usb;          // isUSBconnected "usb1"
};

// "label:" and the value in the column at 10, one line.
std::string ReportField(const std::string& label, const std::string& value);

// "label:   value" lines: state, track i of n, title, artist, album,
// time/duration, file, repeat, shuffle and usb1.
std::string FormatStatus(const StatusResults& results);

// One page of a file list: the folder, one line per entry ("ID  name", a
// folder's name ending in "/"), then "entries a-b of total" with the page.
std::string FormatListing(const Json::Value& result, long long pageSize);

// How many pages `total` entries make at `pageSize` a page.
long long PageCount(long long total, long long pageSize);

// The suspended track as popSuspendedTrackInfo gives it, or
// "no suspended track".
std::string FormatSuspension(const Json::Value& suspensionData);

}  // namespace usbctl
