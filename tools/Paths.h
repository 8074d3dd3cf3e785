#pragma once

#include <string>

namespace usbctl {

// A path split into the folder that holds an entry and the entry's own name,
// the way the service addresses files and folders.
struct SplitPathResult {
    std::string folder;
    std::string name;
};

// Removes "." and empty components, resolves ".." lexically and drops
// trailing slashes; "/" stays "/".
std::string NormalizePath(const std::string& path);

// Puts `root` in front of a built-in path ("/mnt" or below) unless the path
// already lies under `root`. An empty root, or any other path, is returned
// unchanged.
std::string PrefixWithRoot(const std::string& path, const std::string& root);

// The path as the service should see it: built-in paths prefixed with the
// root, relative paths taken from `currentDir`, then normalised.
std::string ResolvePath(const std::string& path, const std::string& root,
                        const std::string& currentDir);

// Same, with $USBMEDIA_ROOT and the process's working directory.
std::string ResolvePath(const std::string& path);

// "/a/b/c.mp3" -> {"/a/b", "c.mp3"}; "/a" -> {"/", "a"}; trailing slashes ignored.
SplitPathResult SplitPath(const std::string& path);

// The stick root the service uses by default ("$USBMEDIA_ROOT/mnt/usb-stick1").
std::string DefaultStickRoot();

// Text for the wire, which is UTF-8: a local name that is not valid UTF-8 is
// taken as ISO8859-1 (the storage's encoding) and converted.
std::string ToWireText(const std::string& localText);

bool IsValidUtf8(const std::string& text);

}  // namespace usbctl
