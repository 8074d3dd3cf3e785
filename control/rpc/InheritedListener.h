#pragma once

#include "control/rpc/FileDescriptor.h"

#include <cstdint>
#include <string>

namespace Json {
namespace Rpc {

// A listening socket handed to the process at start, the way systemd's socket
// activation does it (sd_listen_fds(3)): LISTEN_PID names this process and
// LISTEN_FDS counts the sockets passed from descriptor 3 on. Whoever made the
// socket chose its port, so nobody can take that port between its choice and
// our bind. Done by hand so that builds without libsystemd have it too.
struct SInheritedListener {
    FileDescriptor socket;  // invalid when nothing usable was handed over
    std::string address;    // where it listens, dotted IPv4
    uint16_t port = 0;
};

// The socket on descriptor 3, when one was handed to this process and it is a
// listening IPv4 TCP socket, made close-on-exec and non-blocking. Handed out
// once; later calls find nothing. The variables are read and removed from the
// environment before main, whatever they say.
SInheritedListener TakeInheritedListener();

}  // namespace Rpc
}  // namespace Json
