#include "tests/support/ProcessStatus.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>

namespace testing_support {

namespace {

std::string DescriptorFolder(pid_t pid)
{
    return "/proc/" + std::to_string(pid) + "/fd";
}

// Calls `visit` with the name of each open descriptor; false when the
// process's descriptor folder cannot be read.
template <typename Visit>
bool ForEachDescriptor(pid_t pid, Visit visit)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(DescriptorFolder(pid).c_str()), &::closedir);
    if (!directory) {
        return false;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        if (entry->d_name[0] != '.') {
            visit(entry->d_name);
        }
    }
    return true;
}

}  // namespace

long ResidentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string key;
    while (status >> key) {
        if (key == "VmRSS:") {
            long value = -1;
            status >> value;
            return value;
        }
        status.ignore(1 << 16, '\n');
    }
    return -1;
}

long OpenDescriptors(pid_t pid)
{
    long count = 0;
    return ForEachDescriptor(pid, [&count](const char*) { ++count; }) ? count : -1;
}

long OpenDescriptorsBelow(pid_t pid, long limit)
{
    long count = 0;
    const bool read = ForEachDescriptor(pid, [&count, limit](const char* name) {
        count += std::strtol(name, nullptr, 10) < limit ? 1 : 0;
    });
    return read ? count : -1;
}

std::string DescriptorList(pid_t pid)
{
    const std::string folder = DescriptorFolder(pid);
    std::string list;
    ForEachDescriptor(pid, [&](const char* name) {
        char target[512] = {};
        if (::readlink((folder + "/" + name).c_str(), target, sizeof(target) - 1) > 0) {
            list += std::string(name) + " -> " + target + "\n";
        }
    });
    return list;
}

}  // namespace testing_support
