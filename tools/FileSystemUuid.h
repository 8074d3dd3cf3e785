#pragma once

#include <string>

namespace usbctl {

// The UUID of the file system mounted at `mountPoint`, the way udev names it
// with a link in `byUuidFolder` (/dev/disk/by-uuid) to its device: the name
// of the entry that leads to the device `mountInfoPath` (/proc/self/mountinfo)
// shows mounted there. Empty when nothing is mounted there, no entry leads to
// its device, or either file cannot be read.
std::string FileSystemUuidOf(const std::string& mountPoint, const std::string& mountInfoPath,
                             const std::string& byUuidFolder);

}  // namespace usbctl
