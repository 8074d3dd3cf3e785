#include "tools/Paths.h"

#include "core/Environment.h"
#include "core/TextConversion.h"

#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace usbctl {

namespace {
constexpr const char* kBuiltInMount = "/mnt";
constexpr const char* kStickRoot = "/mnt/usb-stick1";

bool StartsWithDirectory(const std::string& path, const std::string& directory)
{
    if (path.compare(0, directory.size(), directory) != 0) {
        return false;
    }
    return path.size() == directory.size() || path[directory.size()] == '/';
}

std::string StripTrailingSlashes(std::string text)
{
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

std::vector<std::string> Components(const std::string& path)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin <= path.size()) {
        size_t end = path.find('/', begin);
        if (end == std::string::npos) {
            end = path.size();
        }
        parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::string CurrentDirectory()
{
    std::vector<char> buffer(4096);
    if (getcwd(buffer.data(), buffer.size()) == nullptr) {
        return "/";
    }
    return buffer.data();
}

std::string RootFromEnvironment()
{
    const char* root = std::getenv("USBMEDIA_ROOT");
    return root != nullptr ? root : "";
}

// Length of the UTF-8 sequence that `lead` starts, 0 when it cannot start one.
size_t SequenceLength(unsigned char lead)
{
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return 4;
    }
    return 0;
}
}  // namespace

std::string NormalizePath(const std::string& path)
{
    const bool absolute = !path.empty() && path[0] == '/';
    std::vector<std::string> kept;
    for (const std::string& part : Components(path)) {
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == ".." && !kept.empty() && kept.back() != "..") {
            kept.pop_back();
            continue;
        }
        if (part == ".." && absolute) {
            continue;  // above "/" is "/"
        }
        kept.push_back(part);
    }
    std::string result = absolute ? "/" : "";
    for (size_t i = 0; i < kept.size(); ++i) {
        result += (i == 0 ? "" : "/") + kept[i];
    }
    return result.empty() ? "." : result;
}

std::string PrefixWithRoot(const std::string& path, const std::string& root)
{
    const std::string prefix = StripTrailingSlashes(root);
    if (prefix.empty() || prefix == "/") {
        return path;
    }
    if (!StartsWithDirectory(path, kBuiltInMount)) {
        return path;
    }
    if (StartsWithDirectory(path, prefix)) {
        return path;
    }
    return prefix + path;
}

std::string ResolvePath(const std::string& path, const std::string& root,
                        const std::string& currentDir)
{
    if (path.empty()) {
        return NormalizePath(currentDir);
    }
    if (path[0] != '/') {
        return NormalizePath(currentDir + "/" + path);
    }
    return NormalizePath(PrefixWithRoot(path, root));
}

std::string ResolvePath(const std::string& path)
{
    return ResolvePath(path, RootFromEnvironment(), CurrentDirectory());
}

SplitPathResult SplitPath(const std::string& path)
{
    const std::string trimmed = StripTrailingSlashes(path);
    const size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos) {
        return {"", trimmed};
    }
    if (trimmed == "/") {
        return {"/", ""};
    }
    const std::string folder = slash == 0 ? "/" : trimmed.substr(0, slash);
    return {folder, trimmed.substr(slash + 1)};
}

std::string DefaultStickRoot()
{
    return SystemPath(kStickRoot);
}

bool IsValidUtf8(const std::string& text)
{
    for (size_t i = 0; i < text.size();) {
        const size_t length = SequenceLength(static_cast<unsigned char>(text[i]));
        if (length == 0 || i + length > text.size()) {
            return false;
        }
        for (size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += length;
    }
    return true;
}

std::string ToWireText(const std::string& localText)
{
    return IsValidUtf8(localText) ? localText : Latin1ToUtf8(localText);
}

}  // namespace usbctl
