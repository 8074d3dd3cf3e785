#include "tools/Connection.h"

#include "control/rpc/JsonText.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

namespace usbctl {

namespace {
using Clock = std::chrono::steady_clock;

// Incoming values larger than this are not replies of this service.
constexpr size_t kMaxMessageBytes = 64 * 1024 * 1024;

struct AddressInfoDeleter {
    void operator()(addrinfo* info) const { freeaddrinfo(info); }
};
using AddressInfo = std::unique_ptr<addrinfo, AddressInfoDeleter>;

AddressInfo Resolve(const std::string& host, int port)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int status = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (status != 0) {
        throw ConnectionError("cannot resolve " + host + ": " + gai_strerror(status));
    }
    return AddressInfo(found);
}

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

Message MakeMessage(std::string text)
{
    Message message;
    message.text = std::move(text);
    if (!Json::Rpc::ParseJson(message.text, message.value)) {
        message.value = Json::Value();
    }
    return message;
}
}  // namespace

Connection::Connection(const std::string& host, int port)
    : m_framer(kMaxMessageBytes), m_peer(host + ":" + std::to_string(port))
{
    const AddressInfo addresses = Resolve(host, port);
    int lastError = 0;
    for (const addrinfo* address = addresses.get(); address != nullptr; address = address->ai_next) {
        Json::Rpc::FileDescriptor candidate(
            socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol));
        if (!candidate.IsValid()) {
            lastError = errno;
            continue;
        }
        if (connect(candidate.Get(), address->ai_addr, address->ai_addrlen) == 0) {
            const int on = 1;
            setsockopt(candidate.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_socket = std::move(candidate);
            return;
        }
        lastError = errno;
    }
    throw ConnectionError("cannot connect to " + m_peer + ": " + std::strerror(lastError));
}

void Connection::SendAll(const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = send(Fd(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            throw ConnectionError("lost the connection to " + m_peer + ": " + std::strerror(errno));
        }
        sent += static_cast<size_t>(n);
    }
}

void Connection::SendRequest(const std::string& method, const Json::Value& params, const Json::Value& id)
{
    Json::Value request(Json::objectValue);
    request["jsonrpc"] = "2.0";
    request["method"] = method;
    request["id"] = id;
    if (!params.isNull()) {
        request["params"] = params;
    }
    SendAll(Json::Rpc::ToWireText(request));
}

bool Connection::TakeBuffered(Message& message)
{
    std::string text;
    if (!m_framer.Next(text)) {
        return false;
    }
    message = MakeMessage(std::move(text));
    return true;
}

bool Connection::ReadAvailable()
{
    char chunk[65536];
    for (;;) {
        const ssize_t n = recv(Fd(), chunk, sizeof chunk, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        m_framer.Append(chunk, static_cast<size_t>(n));
        if (m_framer.Overflowed()) {
            throw ConnectionError("the service at " + m_peer + " sent an oversized message");
        }
        return true;
    }
}

bool Connection::Receive(Message& message, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (TakeBuffered(message)) {
            return true;
        }
        pollfd watched{Fd(), POLLIN, 0};
        const int ready = poll(&watched, 1, RemainingMs(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        if (!ReadAvailable()) {
            throw ConnectionError("the service at " + m_peer + " closed the connection");
        }
    }
}

Message Connection::Call(const std::string& method, const Json::Value& params, int timeoutMs,
                         const NotificationHandler& onNotification)
{
    SendRequest(method, params, NextId());
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Message message;
    while (Receive(message, RemainingMs(deadline))) {
        if (!message.IsNotification()) {
            return message;
        }
        if (onNotification) {
            onNotification(message);
        }
    }
    throw ConnectionError("no reply to \"" + method + "\" from " + m_peer + " within " +
                          std::to_string((timeoutMs + 999) / 1000) + " s");
}

}  // namespace usbctl
