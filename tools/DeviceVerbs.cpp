// usb, power and resume-info: device events and the suspension snapshot.
#include "tools/Verbs.h"

#include "core/UsbSticks.h"
#include "tools/FileSystemUuid.h"
#include "tools/Paths.h"
#include "tools/Reports.h"

#include <cstdlib>
#include <optional>
#include <ostream>
#include <set>

namespace usbctl {

namespace {
bool PluggedArgument(const std::string& word)
{
    if (word == "plugged") {
        return true;
    }
    if (word == "unplugged") {
        return false;
    }
    throw UsageError("usb takes plugged or unplugged, not \"" + word + "\"");
}

std::string DeviceArgument(const std::string& device)
{
    for (const SUsbStick& stick : kUsbSticks) {
        if (device == stick.deviceName) {
            return device;
        }
    }
    throw UsageError("usb takes the device usb1 or usb2, not \"" + device + "\"");
}

// The service keeps a stick's tag library under its file system UUID; a
// plug event without one leaves it to name the stick by its contents.
void AddFileSystemUuid(Json::Value& params, const std::string& uuid)
{
    if (!uuid.empty() && params["usbConnected"].asBool()) {
        params["fsUUID"] = uuid;
    }
}
}  // namespace

int RunUsb(const VerbContext& context)
{
    const std::string device = DeviceArgument(context.Arguments()[0]);
    const bool plugged = PluggedArgument(context.Arguments()[1]);
    Json::Value params(Json::objectValue);
    params["usbDevice"] = device;
    params["usbConnected"] = plugged;
    params["isSupported"] = !context.invocation.Has("--not-supported");
    params["isReadable"] = !context.invocation.Has("--unreadable");
    AddFileSystemUuid(params, context.invocation.Option("--fs-uuid").value_or(""));
    return RunRequest(context, "usbConnectionEvent", params, [&](const Json::Value&) {
        context.out << device << ": " << (plugged ? "plugged" : "unplugged") << " reported\n";
    });
}

namespace {
std::string EnvironmentOr(const char* name, const std::string& fallback)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : fallback;
}

// "usb1" or "usb2" for the stick's mount point, with or without the root prefix.
std::string DeviceOfMountPoint(const std::string& mountPoint)
{
    const std::string root = NormalizePath(EnvironmentOr("USBMEDIA_ROOT", ""));
    std::string path = NormalizePath(mountPoint);
    if (!root.empty() && root != "/" && path.compare(0, root.size() + 1, root + "/") == 0) {
        path.erase(0, root.size());
    }
    for (const SUsbStick& stick : kUsbSticks) {
        if (path == stick.mountPoint) {
            return stick.deviceName;
        }
    }
    throw UsageError("mount-event takes the mount point /mnt/usb-stick1 or /mnt/usb-stick2, not \"" +
                     mountPoint + "\"");
}

// The event from the argument, else from udev's ACTION.
bool MountedArgument(const VerbContext& context)
{
    if (context.Arguments().size() > 1) {
        const std::string& word = context.Arguments()[1];
        if (word == "mounted" || word == "unmounted") {
            return word == "mounted";
        }
        throw UsageError("mount-event takes mounted or unmounted, not \"" + word + "\"");
    }
    const std::string action = EnvironmentOr("ACTION", "");
    if (action == "add" || action == "remove") {
        return action == "add";
    }
    throw UsageError("mount-event needs mounted or unmounted, or ACTION=add or remove from udev" +
                     (action.empty() ? std::string() : " (ACTION is \"" + action + "\")"));
}

// File systems the kernel of the head unit mounts and the service reads.
bool SupportedFileSystem(const std::string& type)
{
    static const std::set<std::string> supported{"vfat", "exfat", "ntfs", "ntfs3", "ext2", "ext3", "ext4",
                                                 "iso9660", "udf", "hfsplus"};
    return type.empty() || supported.count(type) != 0;
}

// The stick's file system UUID, by which the service keeps what it learnt of
// the stick: udev's ID_FS_UUID when run from its environment, else found
// through the device mounted there. Empty when neither says.
std::string FileSystemUuid(const std::string& mountPoint)
{
    const std::string fromUdev = EnvironmentOr("ID_FS_UUID", "");
    if (!fromUdev.empty()) {
        return fromUdev;
    }
    return FileSystemUuidOf(ResolvePath(mountPoint), "/proc/self/mountinfo", "/dev/disk/by-uuid");
}

// What the report line says beside the mount point.
std::string MountEventDetails(const Json::Value& params, const std::string& fileSystem)
{
    std::string details;
    if (params.isMember("fsUUID")) {
        details += ", UUID " + params["fsUUID"].asString();
    }
    if (!params["isSupported"].asBool()) {
        details += ", " + (fileSystem.empty() ? "" : fileSystem + " ") + "not supported";
    }
    return details;
}
}  // namespace

int RunMountEvent(const VerbContext& context)
{
    const std::string mountPoint = context.ArgumentOr(0, EnvironmentOr("USBMEDIA_MOUNT_POINT", ""));
    if (mountPoint.empty()) {
        throw UsageError("mount-event needs a MOUNTPOINT, or USBMEDIA_MOUNT_POINT in the environment");
    }
    const std::string device = DeviceOfMountPoint(mountPoint);
    const bool mounted = MountedArgument(context);
    const std::string fileSystem = EnvironmentOr("ID_FS_TYPE", "");
    Json::Value params(Json::objectValue);
    params["usbDevice"] = device;
    params["usbConnected"] = mounted;
    params["isSupported"] = !context.invocation.Has("--not-supported") && SupportedFileSystem(fileSystem);
    params["isReadable"] = !context.invocation.Has("--unreadable");
    // Sent only when known: a service that keys nothing by it sees no change.
    const std::optional<std::string> given = context.invocation.Option("--fs-uuid");
    AddFileSystemUuid(params, given ? *given : mounted ? FileSystemUuid(mountPoint) : std::string());
    return RunRequest(context, "usbConnectionEvent", params, [&](const Json::Value&) {
        context.out << device << ": " << (mounted ? "plugged" : "unplugged") << " reported (" << mountPoint
                    << MountEventDetails(params, fileSystem) << ")\n";
    });
}

int RunPower(const VerbContext& context)
{
    const std::string& word = context.Arguments()[0];
    if (word != "off" && word != "on") {
        throw UsageError("power takes off or on, not \"" + word + "\"");
    }
    const bool softPowerOff = word == "off";
    Json::Value params(Json::objectValue);
    params["softPowerOff"] = softPowerOff;
    return RunRequest(context, "setSoftPowerOff", params, [&](const Json::Value&) {
        context.out << (softPowerOff ? "soft power-off" : "power on") << "\n";
    });
}

int RunResumeInfo(const VerbContext& context)
{
    return RunRequest(context, "popSuspendedTrackInfo", Json::Value(), [&](const Json::Value& result) {
        context.out << FormatSuspension(result["suspensionData"]);
    });
}

}  // namespace usbctl
