#pragma once

// The socket a supervising systemd listens on (NOTIFY_SOCKET): tests bind
// one and read what the daemon reports there (READY=1, WATCHDOG=1, ...).

#include "tests/support/WireTimeout.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace testing_support {

constexpr int kNotifyTimeoutMs = kWireTimeoutMs;

struct Received {
    std::string text;
    std::chrono::steady_clock::time_point at;
};

// The socket systemd would listen on.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path) : m_path(path)
    {
        m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "cannot bind " << path;
        }
    }
    ~NotifySocket()
    {
        close(m_fd);
        unlink(m_path.c_str());
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    const std::string& Path() const { return m_path; }

    // The next datagram; false when none came within the time-out.
    bool Receive(Received& message, int timeoutMs)
    {
        pollfd watched{m_fd, POLLIN, 0};
        if (poll(&watched, 1, timeoutMs) <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t n = recv(m_fd, buffer, sizeof buffer, 0);
        if (n < 0) {
            return false;
        }
        message.text.assign(buffer, static_cast<size_t>(n));
        message.at = std::chrono::steady_clock::now();
        return true;
    }

    // Every datagram already queued, without waiting.
    std::vector<std::string> Drain()
    {
        std::vector<std::string> texts;
        Received message;
        while (Receive(message, 0)) {
            texts.push_back(message.text);
        }
        return texts;
    }

    // Everything up to and including the first `last`.
    std::vector<std::string> ReceiveUntil(const std::string& last, int timeoutMs = kNotifyTimeoutMs)
    {
        std::vector<std::string> texts;
        Received message;
        while (Receive(message, timeoutMs)) {
            texts.push_back(message.text);
            if (message.text == last) {
                break;
            }
        }
        return texts;
    }

private:
    std::string m_path;
    int m_fd = -1;
};


}  // namespace testing_support
