#pragma once

#include "tests/support/WireLog.h"

#include <json/value.h>

#include <memory>
#include <string>

namespace testing_support {

// A plain blocking TCP client for the daemon's JSON-RPC port, reading the
// newline-terminated lines the daemon writes.
class RpcClient {
public:
    RpcClient() = default;
    ~RpcClient();
    RpcClient(RpcClient&& other) noexcept;
    RpcClient& operator=(RpcClient&& other) noexcept;
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    bool Connect(int port, int timeoutMs = 5000);
    void Close();
    bool IsConnected() const { return m_fd >= 0; }
    int Fd() const { return m_fd; }

    bool SendRaw(const std::string& bytes);

    // Next line without its "\n"; false on time-out or when the peer closed.
    bool ReadLine(std::string& line, int timeoutMs = 5000);

    // True when the peer has closed the connection within the time-out.
    bool WaitClosed(int timeoutMs = 5000);

    // Sends a request and returns the first line that is a reply (has no
    // "method"), keeping notifications that arrive meanwhile for NextNotification.
    Json::Value Call(const std::string& method, const Json::Value& params = Json::Value(),
                     int timeoutMs = 10000);
    std::string CallRaw(const std::string& method, const Json::Value& params = Json::Value(),
                        int timeoutMs = 10000);

    // The next notification line (queued or newly read) whose method is
    // `method` (any when empty); notifications of other methods are dropped.
    bool NextNotification(Json::Value& notification, const std::string& method = "",
                          int timeoutMs = 10000);
    // Forgets queued notifications.
    void DrainNotifications(int quietMs = 200);

private:
    int m_fd = -1;
    std::string m_buffer;
    int m_nextId = 1;
    std::string m_pendingNotifications;  // complete lines, "\n"-separated
    std::unique_ptr<WireLog> m_wireLog;  // when the suite records what it receives
};

Json::Value ParseLine(const std::string& line);

}  // namespace testing_support
