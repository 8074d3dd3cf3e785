#include "tools/FileSystemUuid.h"

#include "core/PosixHandles.h"
#include "tools/Paths.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace usbctl {

namespace {
// One file system of the mount table: its device as mount(8) gave it, and
// the device number the kernel holds, for a device path not seen here.
struct SMountedDevice {
    std::string source;
    dev_t number = 0;
};

bool IsOctalEscape(const std::string& field, size_t at)
{
    if (field[at] != '\\' || at + 3 >= field.size()) {
        return false;
    }
    for (size_t digit = at + 1; digit <= at + 3; ++digit) {
        if (field[digit] < '0' || field[digit] > '7') {
            return false;
        }
    }
    return true;
}

// mountinfo writes space, tab, newline and backslash as \ooo.
std::string UnescapeMountField(const std::string& field)
{
    std::string text;
    for (size_t at = 0; at < field.size(); ++at) {
        if (IsOctalEscape(field, at)) {
            text += static_cast<char>(std::stoi(field.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            text += field[at];
        }
    }
    return text;
}

// "ID PARENT MAJOR:MINOR ROOT MOUNTPOINT OPTIONS [TAGS...] - TYPE SOURCE SUPEROPTIONS"
bool ParseMountLine(const std::string& line, std::string& mountPoint, SMountedDevice& device)
{
    std::istringstream words(line);
    std::vector<std::string> fields;
    for (std::string word; words >> word;) {
        fields.push_back(word);
    }
    size_t separator = 6;
    while (separator < fields.size() && fields[separator] != "-") {
        ++separator;
    }
    if (separator + 2 >= fields.size()) {
        return false;
    }
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    std::istringstream numbers(fields[2]);
    if (!(numbers >> major >> colon >> minor) || colon != ':') {
        return false;
    }
    mountPoint = UnescapeMountField(fields[4]);
    device.source = UnescapeMountField(fields[separator + 2]);
    device.number = makedev(major, minor);
    return true;
}

// The device of the file system on top at `mountPoint`: the last line for it,
// since a later mount hides an earlier one there.
bool FindMountedDevice(const std::string& mountPoint, const std::string& mountInfoPath, SMountedDevice& found)
{
    std::ifstream table(mountInfoPath);
    bool any = false;
    for (std::string line; std::getline(table, line);) {
        std::string point;
        SMountedDevice device;
        if (ParseMountLine(line, point, device) && point == mountPoint) {
            found = device;
            any = true;
        }
    }
    return any;
}

// Where the link leads, as a path: the device itself may be hidden from this
// process (a service's private /dev), the link's text is not.
std::string LinkTarget(const std::string& link, const std::string& folder)
{
    std::vector<char> buffer(4096);
    const ssize_t length = readlink(link.c_str(), buffer.data(), buffer.size());
    if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) {
        return "";
    }
    const std::string target(buffer.data(), static_cast<size_t>(length));
    return NormalizePath(target[0] == '/' ? target : folder + "/" + target);
}

bool LeadsTo(const std::string& link, const std::string& folder, const SMountedDevice& device)
{
    if (device.source[0] == '/' && LinkTarget(link, folder) == NormalizePath(device.source)) {
        return true;
    }
    // A source that is itself a link (a name of the device's own) matches by number.
    struct stat status {};
    return stat(link.c_str(), &status) == 0 && S_ISBLK(status.st_mode) && status.st_rdev == device.number;
}
}  // namespace

std::string FileSystemUuidOf(const std::string& mountPoint, const std::string& mountInfoPath,
                             const std::string& byUuidFolder)
{
    SMountedDevice device;
    if (!FindMountedDevice(NormalizePath(mountPoint), mountInfoPath, device) || device.source.empty()) {
        return "";
    }
    const DirPtr folder(opendir(byUuidFolder.c_str()));
    if (!folder) {
        return "";
    }
    std::string uuid;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || (!uuid.empty() && name > uuid)) {
            continue;
        }
        // The smallest name when two lead there, so the answer does not
        // depend on the folder's order.
        if (LeadsTo(byUuidFolder + "/" + name, byUuidFolder, device)) {
            uuid = name;
        }
    }
    return uuid;
}

}  // namespace usbctl
