#include "control/rpc/InheritedListener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace Json {
namespace Rpc {

namespace {
constexpr int kFirstPassedFd = 3;  // SD_LISTEN_FDS_START

// A whole decimal number, or -1.
long ParseCount(const char* text)
{
    if (text == nullptr || *text == '\0') {
        return -1;
    }
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    return errno == 0 && *end == '\0' && value >= 0 ? value : -1;
}

// How many sockets were passed to this very process: none when the variables
// are missing or malformed, or name another process (a parent's, kept in an
// environment passed on through exec).
int CountPassedSockets()
{
    const long pid = ParseCount(std::getenv("LISTEN_PID"));
    const long count = ParseCount(std::getenv("LISTEN_FDS"));
    if (pid != static_cast<long>(getpid()) || count < 1 || count > INT_MAX - kFirstPassedFd) {
        return 0;
    }
    return static_cast<int>(count);
}

// Runs once, before main: unsetenv beside another thread's getenv (GStreamer
// and GLib read the environment from theirs) is not safe later on.
int TakePassedSocketsFromEnvironment()
{
    const int count = CountPassedSockets();
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
    unsetenv("LISTEN_FDNAMES");
    for (int fd = kFirstPassedFd; fd < kFirstPassedFd + count; ++fd) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);  // none of them may leak into a child
    }
    return count;
}

std::atomic<int> g_passedSockets{TakePassedSocketsFromEnvironment()};

bool IsListeningStreamSocket(int fd)
{
    int type = 0;
    int listening = 0;
    socklen_t length = sizeof type;
    if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_STREAM) {
        return false;
    }
    length = sizeof listening;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) == 0 && listening != 0;
}

// Where `fd` listens, when it is an IPv4 socket.
bool LocalIpv4Address(int fd, sockaddr_in& address)
{
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0 || storage.ss_family != AF_INET) {
        return false;
    }
    address = *reinterpret_cast<const sockaddr_in*>(&storage);
    return true;
}
}  // namespace

SInheritedListener TakeInheritedListener()
{
    SInheritedListener inherited;
    if (g_passedSockets.exchange(0) < 1) {
        return inherited;
    }
    const int fd = kFirstPassedFd;
    sockaddr_in address{};
    // Anything else on descriptor 3 is not ours to take (nor to close).
    if (!IsListeningStreamSocket(fd) || !LocalIpv4Address(fd, address)) {
        return inherited;
    }
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0 || fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
        return inherited;
    }
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    inherited.socket.Reset(fd);
    inherited.address = text;
    inherited.port = ntohs(address.sin_port);
    return inherited;
}

}  // namespace Rpc
}  // namespace Json
