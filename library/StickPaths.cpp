#include "library/StickPaths.h"

#include "core/Environment.h"
#include "core/UsbSticks.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {
constexpr int kFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }
};

std::optional<std::string> RealPath(const std::string& path)
{
    const std::unique_ptr<char, FreeDeleter> resolved(realpath(path.c_str(), nullptr));
    if (!resolved) {
        return std::nullopt;
    }
    return std::string(resolved.get());
}

// True when `resolved` is `root` or lies below it ("/mnt/usb-stick10" does
// not lie below "/mnt/usb-stick1").
bool IsAtOrBelow(const std::string& resolved, const std::string& root)
{
    if (resolved.compare(0, root.size(), root) != 0) {
        return false;
    }
    return resolved.size() == root.size() || root.back() == '/' || resolved[root.size()] == '/';
}

// The areas are resolved on every call: a stick is mounted and unmounted
// while the service runs, and USBMEDIA_ROOT may itself hold links (/tmp).
std::optional<SStickPath> AreaOf(const std::string& resolved)
{
    const EStickArea sticks[] = {EStickArea::kFirstStick, EStickArea::kSecondStick};
    for (size_t i = 0; i < 2; ++i) {
        const std::optional<std::string> root = RealPath(SystemPath(kUsbSticks[i].mountPoint));
        if (root && IsAtOrBelow(resolved, *root)) {
            return SStickPath{resolved, *root, sticks[i]};
        }
    }
    const std::optional<std::string> mountFolder = RealPath(SystemPath(kStickMountFolder));
    if (mountFolder && resolved == *mountFolder) {
        return SStickPath{resolved, *mountFolder, EStickArea::kMountFolder};
    }
    return std::nullopt;
}

// The last name of a mount point ("usb-stick1").
std::string FolderName(const char* mountPoint)
{
    const std::string path(mountPoint);
    return path.substr(path.rfind('/') + 1);
}
}  // namespace

std::optional<SStickPath> ConfineToSticks(const std::string& path)
{
    const std::optional<std::string> resolved = RealPath(path);
    if (!resolved) {
        return std::nullopt;
    }
    return AreaOf(*resolved);
}

bool IsStickFolderName(const std::string& name)
{
    for (const SUsbStick& stick : kUsbSticks) {
        if (name == FolderName(stick.mountPoint)) {
            return true;
        }
    }
    return false;
}

std::optional<std::string> TrackLocation(const std::string& folder, const std::string& name)
{
    const std::string location = folder + "/" + name;
    const std::optional<std::string> resolved = RealPath(location);
    if (!resolved) {
        return location;
    }
    const std::optional<SStickPath> file = AreaOf(*resolved);
    const std::optional<SStickPath> home = ConfineToSticks(folder);
    if (!file || !home || file->area == EStickArea::kMountFolder || file->area != home->area) {
        return std::nullopt;
    }
    return file->resolved;
}

UniqueFd OpenConfinedFolder(const SStickPath& folder)
{
    // The root itself (the service's own mount point under its own root
    // prefix) may be reached through links; below it nothing may be.
    UniqueFd current(open(folder.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    size_t start = folder.root.size();
    while (current.IsValid() && start < folder.resolved.size()) {
        start = folder.resolved.find_first_not_of('/', start);
        if (start == std::string::npos) {
            break;
        }
        const size_t end = std::min(folder.resolved.find('/', start), folder.resolved.size());
        const std::string name = folder.resolved.substr(start, end - start);
        current = UniqueFd(openat(current.Get(), name.c_str(), kFolderOpenFlags));
        start = end;
    }
    return current;
}
