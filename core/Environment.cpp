#include "core/Environment.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

namespace {
const char* Variable(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}
}  // namespace

std::string SystemPath(const std::string& builtInPath)
{
    const char* root = Variable("USBMEDIA_ROOT");
    if (root == nullptr) {
        return builtInPath;
    }
    std::string prefix(root);
    while (!prefix.empty() && prefix.back() == '/') {
        prefix.pop_back();
    }
    return prefix + builtInPath;
}

std::string AudioSinkDescription()
{
    const char* sink = Variable("USBMEDIA_AUDIO_SINK");
    return sink != nullptr ? sink : kDefaultAudioSink;
}

int RpcPort()
{
    const char* port = Variable("USBMEDIA_PORT");
    if (port == nullptr) {
        return kDefaultRpcPort;
    }
    char* end = nullptr;
    const long value = std::strtol(port, &end, 10);
    return (*end == '\0' && value > 0 && value < 65536) ? static_cast<int>(value) : kDefaultRpcPort;
}

std::string AudioFormatsSetting()
{
    const char* formats = Variable("USBMEDIA_FORMATS");
    return formats != nullptr ? formats : "";
}

std::string StateDirectory()
{
    const char* fromSystemd = Variable("STATE_DIRECTORY");
    if (fromSystemd == nullptr) {
        return SystemPath(kDefaultStateDirectory);
    }
    const std::string list(fromSystemd);
    return list.substr(0, list.find(':'));
}

bool MakeStateDirectory(const std::string& path)
{
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string parent = path.substr(0, slash);
        if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}
