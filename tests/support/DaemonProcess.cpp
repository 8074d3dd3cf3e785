#include "tests/support/DaemonProcess.h"

#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace testing_support {

namespace {
using Clock = std::chrono::steady_clock;

constexpr int kHandedOverFd = 3;  // where socket activation puts the first socket

sockaddr_in Loopback()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A socket on 127.0.0.1 with a port the kernel chose; -1 on failure.
int BoundLoopbackSocket(int& port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback();
    socklen_t length = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

// The daemon binds an address of its own when the test names one.
bool AsksForAddress(const std::vector<std::string>& arguments)
{
    return std::any_of(arguments.begin(), arguments.end(),
                       [](const std::string& argument) { return argument.rfind("-a", 0) == 0; });
}

// In the child: `listener` becomes descriptor 3, announced to this very
// process (the emulator, when there is one, execs the daemon in it).
void HandOver(int listener)
{
    if (listener == kHandedOverFd) {
        fcntl(listener, F_SETFD, 0);  // dup2 onto itself would keep close-on-exec
    } else {
        dup2(listener, kHandedOverFd);
    }
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
}

// In the child: gives up root for `options`' user, groups first (afterwards
// it may not change them). False when that fails.
bool DropPrivileges(const DaemonProcess::Options& options)
{
    if (options.user == 0) {
        return true;
    }
    return setgroups(0, nullptr) == 0 && setgid(options.group) == 0 && setuid(options.user) == 0;
}
}  // namespace


HeldPort::HeldPort()
{
    m_fd = BoundLoopbackSocket(m_port);
    if (m_fd < 0) {
        throw std::runtime_error("cannot bind a port on 127.0.0.1");
    }
}

HeldPort::~HeldPort()
{
    close(m_fd);
}


std::string DaemonProcess::BinaryPath()
{
    const char* other = std::getenv("USBMEDIA_TEST_DAEMON");
    return other != nullptr && *other != '\0' ? other : USBMEDIA_DAEMON_PATH;
}

std::vector<std::string> DaemonProcess::EmulatorPrefix()
{
    std::vector<std::string> prefix;
    const char* other = std::getenv("USBMEDIA_TEST_EMULATOR");
    const std::string text = other != nullptr ? other : USBMEDIA_EMULATOR;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find('|', start), text.size());
        if (end > start) {
            prefix.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return prefix;
}

void DaemonProcess::ForgetEmulatorEnvironment()
{
    const char* names = std::getenv("USBMEDIA_GUEST_ENV");
    if (names == nullptr) {
        return;
    }
    const std::string list = names;  // a copy: unsetenv may free the original
    size_t start = 0;
    while (start < list.size()) {
        const size_t end = std::min(list.find(' ', start), list.size());
        if (end > start) {
            unsetenv(list.substr(start, end - start).c_str());
        }
        start = end + 1;
    }
}

int DaemonProcess::FreePort()
{
    const HeldPort held;
    return held.Port();
}

int DaemonProcess::MakeListener()
{
    const int fd = BoundLoopbackSocket(m_port);
    if (fd >= 0 && listen(fd, SOMAXCONN) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

DaemonProcess::DaemonProcess() : DaemonProcess(Options{})
{
}

DaemonProcess::DaemonProcess(const Options& options)
{
    const bool handOver = options.port == 0 && !AsksForAddress(options.arguments);
    const int listener = handOver ? MakeListener() : -1;
    if (handOver && listener < 0) {
        throw std::runtime_error("cannot make a listening socket on 127.0.0.1");
    }
    if (!handOver) {
        m_port = options.port != 0 ? options.port : FreePort();
    }
    char pattern[] = "/tmp/usbmedia-daemon-out-XXXXXX";
    const int outFd = mkstemp(pattern);
    if (outFd < 0) {
        throw std::runtime_error("mkstemp failed");
    }
    m_outputPath = pattern;

    std::vector<std::string> argv = EmulatorPrefix();
    argv.push_back(BinaryPath());
    argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());

    m_pid = fork();
    if (m_pid == 0) {
        dup2(outFd, STDOUT_FILENO);
        dup2(outFd, STDERR_FILENO);
        if (listener >= 0) {
            HandOver(listener);
        }
        setenv("USBMEDIA_PORT", std::to_string(m_port).c_str(), 1);
        if (std::getenv("USBMEDIA_AUDIO_SINK") == nullptr) {
            setenv("USBMEDIA_AUDIO_SINK", "fakesink sync=true", 1);
        }
        for (const auto& entry : options.environment) {
            setenv(entry.first.c_str(), entry.second.c_str(), 1);
        }
        if (options.maxDescriptors > 0) {
            const rlimit limit{static_cast<rlim_t>(options.maxDescriptors),
                               static_cast<rlim_t>(options.maxDescriptors)};
            if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
                _exit(127);
            }
        }
        if (!DropPrivileges(options)) {
            _exit(126);
        }
        std::vector<char*> raw;
        for (std::string& argument : argv) {
            raw.push_back(argument.data());
        }
        raw.push_back(nullptr);
        execv(raw[0], raw.data());
        _exit(127);
    }
    close(outFd);
    if (listener >= 0) {
        close(listener);  // the daemon holds it now
    }
    if (options.waitUntilServing && !WaitUntilServing(handOver, 15000)) {
        throw std::runtime_error("daemon did not start serving: " + Output());
    }
}

bool DaemonProcess::WaitUntilServing(bool handedOver, int timeoutMs)
{
    RpcClient probe;
    if (!probe.Connect(m_port, timeoutMs)) {
        return false;
    }
    // A handed-over socket accepts connections before the daemon serves
    // (the kernel queues them): only an answer says it does.
    if (handedOver && !probe.Call("ping", Json::Value(), timeoutMs)["result"].asBool()) {
        return false;
    }
    // Leave only once the daemon has closed the probe's connection, so that
    // a test counting the daemon's descriptors starts from its idle count.
    shutdown(probe.Fd(), SHUT_WR);
    return probe.WaitClosed(timeoutMs);
}

DaemonProcess::~DaemonProcess()
{
    if (m_pid > 0) {
        Stop(SIGKILL, 5000);
    }
    ::unlink(m_outputPath.c_str());
}

bool DaemonProcess::IsRunning()
{
    if (m_pid <= 0) {
        return false;
    }
    int status = 0;
    const pid_t done = waitpid(m_pid, &status, WNOHANG);
    if (done == m_pid) {
        m_pid = -1;
        return false;
    }
    return true;
}

int DaemonProcess::Stop(int sig, int timeoutMs, double* seconds)
{
    if (m_pid <= 0) {
        return -1;
    }
    const auto start = Clock::now();
    kill(m_pid, sig);
    const auto deadline = start + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(m_pid, &status, WNOHANG);
        if (done == m_pid) {
            break;
        }
        if (Clock::now() >= deadline) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
            m_pid = -1;
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_pid = -1;
    if (seconds != nullptr) {
        *seconds = std::chrono::duration<double>(Clock::now() - start).count();
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return 128 + WTERMSIG(status);
}

std::string DaemonProcess::Output() const
{
    return ReadFile(m_outputPath);
}

bool DaemonProcess::WaitForOutput(const std::string& text, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        if (Output().find(text) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return Output().find(text) != std::string::npos;
}

}  // namespace testing_support
