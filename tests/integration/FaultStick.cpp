#include "tests/integration/FaultStick.h"

#include "tests/support/DaemonProcess.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireTimeout.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace stick_test {

namespace {
constexpr int kMountTimeoutMs = testing_support::kWireTimeoutMs;
constexpr const char* kControlName = "/.faultfs-control";

bool Unmount(const std::string& mountPoint)
{
    if (::umount2(mountPoint.c_str(), MNT_DETACH) == 0) {
        return true;
    }
    const std::string command = "fusermount3 -u -z '" + mountPoint + "' 2>/dev/null";
    return std::system(command.c_str()) == 0;
}
}  // namespace

FaultStick::FaultStick(const std::string& source, const std::string& mountPoint) : m_mountPoint(mountPoint)
{
    const std::string helper = USBMEDIA_FAULTFS_PATH;
    if (helper.empty()) {
        m_why = "FUSE cannot mount here: the tests were built without libfuse3 (install libfuse3-dev and fuse3)";
        return;
    }
    if (::access("/dev/fuse", R_OK | W_OK) != 0) {
        m_why = std::string("FUSE cannot mount here: /dev/fuse: ") + std::strerror(errno);
        return;
    }
    testing_support::TempDir logs;
    const std::string errors = logs / "faultfs.err";
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) {
        m_why = "pipe failed";
        return;
    }
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(ready[0]);
        const int readyFd = ::dup(ready[1]);  // without O_CLOEXEC
        const int log = ::open(errors.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        if (log >= 0) {
            ::dup2(log, STDOUT_FILENO);
            ::dup2(log, STDERR_FILENO);
        }
        // A target program: in a cross build it runs through the emulator,
        // as the daemon does.
        std::vector<std::string> words = testing_support::DaemonProcess::EmulatorPrefix();
        words.insert(words.end(), {helper, source, mountPoint, std::to_string(readyFd)});
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(ready[1]);
    pollfd wait{ready[0], POLLIN, 0};
    char byte = 0;
    const bool signalled = ::poll(&wait, 1, kMountTimeoutMs) == 1 && ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    if (signalled) {
        m_mounted = true;
        return;
    }
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
    m_why = "FUSE cannot mount here: " + testing_support::ReadFile(errors);
}

FaultStick::~FaultStick()
{
    if (m_mounted) {
        Unmount(m_mountPoint);
    }
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        ::waitpid(m_pid, nullptr, 0);
    }
}

bool FaultStick::Command(const std::string& command) const
{
    const int fd = ::open((m_mountPoint + kControlName).c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool written = ::write(fd, command.data(), command.size()) == static_cast<ssize_t>(command.size());
    ::close(fd);
    return written;
}

std::string FaultStick::Counters() const
{
    return testing_support::ReadFile(m_mountPoint + kControlName);
}

}  // namespace stick_test
