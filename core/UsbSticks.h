#pragma once

// The USB sticks the service plays from: built-in mount point, the folder
// name that marks a path as being on the stick, and the device name clients
// and the platform use for it, for the service and its client alike. Only
// the first stick has a connection record in the player.

#include "core/Environment.h"

#include <string>

// The built-in folder the sticks are mounted in.
inline constexpr const char* kStickMountFolder = "/mnt";

struct SUsbStick {
    const char* mountPoint;  // built-in; SystemPath gives the one in use
    const char* marker;      // a path holding this text is on the stick
    const char* deviceName;
};

inline constexpr SUsbStick kUsbSticks[] = {
    {"/mnt/usb-stick1", "usb-stick1", "usb1"},
    {"/mnt/usb-stick2", "usb-stick2", "usb2"},
};
inline constexpr const SUsbStick& kFirstStick = kUsbSticks[0];
inline constexpr const SUsbStick& kSecondStick = kUsbSticks[1];

// True when `path` holds the stick's marker anywhere (a track's folder).
inline bool PathNamesStick(const std::string& path, const SUsbStick& stick)
{
    return path.find(stick.marker) != std::string::npos;
}

// The stick a track's folder is on: the second stick when its marker is in
// the path, else the first.
inline const SUsbStick& StickOfTrackFolder(const std::string& directory)
{
    return PathNamesStick(directory, kSecondStick) ? kSecondStick : kFirstStick;
}

// True when a track in `directory` lives on the stick named `deviceName`.
inline bool TrackIsOnDevice(const std::string& directory, const std::string& deviceName)
{
    for (const SUsbStick& stick : kUsbSticks) {
        if (deviceName == stick.deviceName && PathNamesStick(directory, stick)) {
            return true;
        }
    }
    return false;
}
