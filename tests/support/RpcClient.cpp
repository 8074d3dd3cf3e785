#include "tests/support/RpcClient.h"

#include "control/rpc/JsonText.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <utility>

namespace testing_support {

namespace {
using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}
}  // namespace

Json::Value ParseLine(const std::string& line)
{
    Json::Value value;
    if (!Json::Rpc::ParseJson(line, value)) {
        return Json::Value();
    }
    return value;
}

RpcClient::~RpcClient()
{
    Close();
}

RpcClient::RpcClient(RpcClient&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_buffer(std::move(other.m_buffer)),
      m_nextId(other.m_nextId), m_pendingNotifications(std::move(other.m_pendingNotifications)),
      m_wireLog(std::move(other.m_wireLog))
{
}

RpcClient& RpcClient::operator=(RpcClient&& other) noexcept
{
    if (this != &other) {
        Close();
        m_fd = std::exchange(other.m_fd, -1);
        m_buffer = std::move(other.m_buffer);
        m_nextId = other.m_nextId;
        m_pendingNotifications = std::move(other.m_pendingNotifications);
        m_wireLog = std::move(other.m_wireLog);
    }
    return *this;
}

bool RpcClient::Connect(int port, int timeoutMs)
{
    Close();
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_fd = fd;
            m_wireLog = WireLog::Enabled() ? std::make_unique<WireLog>() : nullptr;
            return true;
        }
        close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (Clock::now() < deadline);
    return false;
}

void RpcClient::Close()
{
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
    m_buffer.clear();
    m_pendingNotifications.clear();
}

bool RpcClient::SendRaw(const std::string& bytes)
{
    if (m_wireLog) {
        m_wireLog->Sent(bytes);
    }
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

bool RpcClient::ReadLine(std::string& line, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const size_t end = m_buffer.find('\n');
        if (end != std::string::npos) {
            line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            if (m_wireLog) {
                m_wireLog->Received(line);
            }
            return true;
        }
        pollfd watched{m_fd, POLLIN, 0};
        const int ready = poll(&watched, 1, RemainingMs(deadline));
        if (ready <= 0) {
            return false;
        }
        char chunk[65536];
        const ssize_t n = recv(m_fd, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return false;
        }
        m_buffer.append(chunk, static_cast<size_t>(n));
    }
}

bool RpcClient::WaitClosed(int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        pollfd watched{m_fd, POLLIN, 0};
        if (poll(&watched, 1, RemainingMs(deadline)) <= 0) {
            return false;
        }
        char chunk[65536];
        const ssize_t n = recv(m_fd, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return true;
        }
        m_buffer.append(chunk, static_cast<size_t>(n));
    }
}

std::string RpcClient::CallRaw(const std::string& method, const Json::Value& params, int timeoutMs)
{
    Json::Value request;
    request["jsonrpc"] = "2.0";
    request["method"] = method;
    request["id"] = m_nextId++;
    if (!params.isNull()) {
        request["params"] = params;
    }
    if (!SendRaw(Json::Rpc::ToWireText(request))) {
        return std::string();
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string line;
    while (ReadLine(line, RemainingMs(deadline))) {
        const Json::Value value = ParseLine(line);
        if (value.isObject() && value.isMember("method")) {
            m_pendingNotifications += line + "\n";
            continue;
        }
        return line;
    }
    return std::string();
}

Json::Value RpcClient::Call(const std::string& method, const Json::Value& params, int timeoutMs)
{
    return ParseLine(CallRaw(method, params, timeoutMs));
}

bool RpcClient::NextNotification(Json::Value& notification, const std::string& method, int timeoutMs)
{
    while (!m_pendingNotifications.empty()) {
        const size_t end = m_pendingNotifications.find('\n');
        const Json::Value value = ParseLine(m_pendingNotifications.substr(0, end));
        m_pendingNotifications.erase(0, end + 1);
        if (method.empty() || value["method"].asString() == method) {
            notification = value;
            return true;
        }
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string line;
    while (ReadLine(line, RemainingMs(deadline))) {
        const Json::Value value = ParseLine(line);
        if (!value.isObject() || !value.isMember("method")) {
            continue;
        }
        if (method.empty() || value["method"].asString() == method) {
            notification = value;
            return true;
        }
    }
    return false;
}

void RpcClient::DrainNotifications(int quietMs)
{
    m_pendingNotifications.clear();
    std::string line;
    while (ReadLine(line, quietMs)) {
    }
}

}  // namespace testing_support
