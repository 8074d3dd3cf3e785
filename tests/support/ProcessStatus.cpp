#include "tests/support/ProcessStatus.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
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
    return StatusKiB(pid, "VmRSS");
}

long StatusKiB(pid_t pid, const std::string& key)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    const std::string wanted = key + ":";
    std::string name;
    while (status >> name) {
        if (name == wanted) {
            long value = -1;
            status >> value;
            return value;
        }
        status.ignore(1 << 16, '\n');
    }
    return -1;
}

double CpuSeconds(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    // The command name may hold blanks; the fields after it are plain.
    const size_t close = text.rfind(')');
    if (close == std::string::npos) {
        return -1;
    }
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long user = 0;
    unsigned long long system = 0;
    for (int index = 3; fields >> field; ++index) {
        if (index == 14) {
            user = std::stoull(field);
        } else if (index == 15) {
            system = std::stoull(field);
            return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
        }
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
