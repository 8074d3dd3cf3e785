#pragma once

// The only places a client may have the service read: the folder the sticks
// are mounted in ("/mnt", for a walk over both sticks) and the two sticks
// ("/mnt/usb-stick1", "/mnt/usb-stick2") with everything below them, each
// under USBMEDIA_ROOT when set. Whether a path is one of them is decided on
// the path the kernel would open, links, "." and ".." resolved, so neither a
// "../" nor a link on a stick leads out of it.

#include "core/PosixHandles.h"

#include <optional>
#include <string>

enum class EStickArea { kMountFolder, kFirstStick, kSecondStick };

struct SStickPath {
    std::string resolved;  // absolute, without links, "." or ".."
    std::string root;      // the resolved mount folder or stick it lies in
    EStickArea area;
};

// `path` (storage bytes, as the service holds them) resolved, when it is the
// mount folder itself or a stick or below one; none for any other path and
// for one that does not resolve (missing, unreadable, a loop), so a refused
// path and a missing one cannot be told apart.
std::optional<SStickPath> ConfineToSticks(const std::string& path);

// True for the folder names of the sticks in the mount folder: the only
// entries a walk of the mount folder looks at.
bool IsStickFolderName(const std::string& name);

// What the pipeline opens for the track `name` in `folder`: the resolved
// file when it lies on the same stick as its folder; the path as given when
// it does not resolve (opening it fails as it always did: missing, unreadable,
// the stick gone); none when it resolves anywhere else (a link out of the
// stick or onto the other one), which must not be opened.
std::optional<std::string> TrackLocation(const std::string& folder, const std::string& name);

// Opens a confined folder for reading, from its resolved root down one name
// at a time without following any link, so a link put in place of a folder
// after the path was resolved cannot lead elsewhere. Not open on failure.
UniqueFd OpenConfinedFolder(const SStickPath& folder);
