#include "control/rpc/TcpServer.h"

#include "control/rpc/InheritedListener.h"
#include "control/rpc/JsonText.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace Json {
namespace Rpc {

namespace {
constexpr size_t kReadChunk = 64 * 1024;
constexpr int kReadsPerRound = 16;  // bounds one client's share of a round

std::string ParseErrorText()
{
    return ToWireText(Server::ErrorReply(PARSE_ERROR, "Parse error", Json::Value::nullSingleton()));
}
}  // namespace

TcpServer::TcpServer(std::string address, uint16_t port)
    : m_address(std::move(address)), m_port(port),
      m_wakeEvent(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

TcpServer::~TcpServer()
{
    Close();
}

bool TcpServer::Bind()
{
    // Started with a socket already listening: serve on it, on the port its
    // maker chose, and bind nothing.
    SInheritedListener inherited = TakeInheritedListener();
    if (inherited.socket.IsValid()) {
        m_listener = std::move(inherited.socket);
        m_address = std::move(inherited.address);
        m_port = inherited.port;
        return true;
    }
    struct sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    if (inet_pton(AF_INET, m_address.c_str(), &address.sin_addr) != 1) {
        return false;
    }
    FileDescriptor socketFd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socketFd.IsValid()) {
        return false;
    }
    const int on = 1;
    setsockopt(socketFd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(socketFd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return false;
    }
    m_listener = std::move(socketFd);
    // Port 0 leaves the choice to the kernel: keep the port it chose.
    socklen_t length = sizeof address;
    if (getsockname(m_listener.Get(), reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        m_port = ntohs(address.sin_port);
    }
    return true;
}

bool TcpServer::Listen()
{
    m_servingThread = std::this_thread::get_id();
    return m_listener.IsValid() && listen(m_listener.Get(), SOMAXCONN) == 0;
}

void TcpServer::Wake()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wakeEvent.Get(), &one, sizeof one);
}

std::list<int> TcpServer::GetClients() const
{
    const CLockGuard<CMutex> lock(m_mutex);
    std::list<int> clients;
    for (const auto& entry : m_clients) {
        if (!entry.second->dead) {
            clients.push_back(entry.first);
        }
    }
    return clients;
}

bool TcpServer::Send(int client, const std::string& text)
{
    const CLockGuard<CMutex> lock(m_mutex);
    const auto found = m_clients.find(client);
    if (found == m_clients.end() || found->second->dead) {
        return false;
    }
    Enqueue(*found->second, text);
    return !found->second->dead;
}

void TcpServer::Enqueue(Client& client, const std::string& text)
{
    const size_t pending = client.outbox.size() - client.sent;
    if (pending + text.size() > kMaxQueuedBytes) {
        // The client has stopped reading; it is dropped rather than let it
        // hold memory or anyone's time.
        client.dead = true;
        client.outbox.clear();
        client.sent = 0;
        if (!OnServingThread()) {
            Wake();
        }
        return;
    }
    client.outbox += text;
    if (pending == 0) {
        FlushLocked(client);
    }
    if (client.sent < client.outbox.size() && !OnServingThread()) {
        Wake();  // the serving thread must now watch for room to write
    }
}

void TcpServer::FlushLocked(Client& client)
{
    while (client.sent < client.outbox.size()) {
        const ssize_t written = send(client.socket.Get(), client.outbox.data() + client.sent,
                                     client.outbox.size() - client.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (written > 0) {
            client.sent += static_cast<size_t>(written);
            continue;
        }
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        client.dead = true;
        break;
    }
    if (client.sent == client.outbox.size()) {
        client.outbox.clear();
        client.sent = 0;
    } else if (client.sent > kReadChunk && client.sent * 2 > client.outbox.size()) {
        client.outbox.erase(0, client.sent);
        client.sent = 0;
    }
}

void TcpServer::WaitMessage(int timeoutMs)
{
    if (!m_listener.IsValid()) {
        return;
    }
    std::vector<pollfd> watched;
    watched.push_back({m_listener.Get(), POLLIN, 0});
    watched.push_back({m_wakeEvent.Get(), POLLIN, 0});
    {
        const CLockGuard<CMutex> lock(m_mutex);
        watched.reserve(m_clients.size() + 2);
        for (const auto& entry : m_clients) {
            const Client& client = *entry.second;
            short events = client.closing ? 0 : POLLIN;
            if (client.sent < client.outbox.size()) {
                events |= POLLOUT;
            }
            watched.push_back({entry.first, events, 0});
        }
    }

    const int ready = poll(watched.data(), watched.size(), timeoutMs);
    if (ready <= 0) {
        CloseFinishedClients();
        return;
    }
    if (watched[1].revents != 0) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t drained = read(m_wakeEvent.Get(), &count, sizeof count);
    }
    // New clients first: a client that connected before a request arrived
    // is then known when that request's notifications go out.
    if (watched[0].revents != 0) {
        AcceptClients();
    }
    for (size_t i = 2; i < watched.size(); ++i) {
        const short revents = watched[i].revents;
        if (revents == 0) {
            continue;
        }
        Client* const found = FindClientOnServingThread(watched[i].fd);
        if (found == nullptr) {
            continue;
        }
        Client& client = *found;
        if (revents & (POLLIN | POLLHUP | POLLERR)) {
            ReadFrom(client);
        }
        if (revents & POLLOUT) {
            const CLockGuard<CMutex> lock(m_mutex);
            FlushLocked(client);
        }
    }
    CloseFinishedClients();
}

// Membership changes only on the serving thread (AcceptClients,
// CloseFinishedClients, Close), so reading it there needs no lock; the
// analysis cannot know the thread, hence the exemption.
TcpServer::Client* TcpServer::FindClientOnServingThread(int fd) NO_THREAD_SAFETY_ANALYSIS
{
    const auto found = m_clients.find(fd);
    return found == m_clients.end() ? nullptr : found->second.get();
}

void TcpServer::AcceptClients()
{
    for (;;) {
        const int fd = accept4(m_listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            return;  // EAGAIN: all taken; EMFILE and the like: try next round
        }
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const CLockGuard<CMutex> lock(m_mutex);
        m_clients[fd] = std::make_unique<Client>(fd);
    }
}

void TcpServer::ReadFrom(Client& client)
{
    char buffer[kReadChunk];
    for (int round = 0; round < kReadsPerRound; ++round) {
        const ssize_t received = recv(client.socket.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        }
        if (received <= 0) {
            const CLockGuard<CMutex> lock(m_mutex);
            if (received == 0) {
                client.closing = true;  // answer what came, then close
            } else {
                client.dead = true;
            }
            return;
        }
        client.framer.Append(buffer, static_cast<size_t>(received));
        std::string text;
        while (client.framer.Next(text)) {
            bool malformed = false;
            const std::string reply = Process(text, malformed);
            if (malformed) {
                client.framer.SkipMalformedRun();  // one error for the whole bad run
            }
            if (!reply.empty()) {
                const CLockGuard<CMutex> lock(m_mutex);
                Enqueue(client, reply);
            }
        }
        if (client.framer.Overflowed()) {
            const CLockGuard<CMutex> lock(m_mutex);
            Enqueue(client, ParseErrorText());
            client.dead = true;
            return;
        }
        if (static_cast<size_t>(received) < sizeof buffer) {
            return;
        }
    }
}

void TcpServer::CloseFinishedClients()
{
    const CLockGuard<CMutex> lock(m_mutex);
    for (auto it = m_clients.begin(); it != m_clients.end();) {
        const Client& client = *it->second;
        const bool flushed = client.sent == client.outbox.size();
        if (client.dead || (client.closing && flushed)) {
            it = m_clients.erase(it);
        } else {
            ++it;
        }
    }
}

void TcpServer::Close()
{
    const CLockGuard<CMutex> lock(m_mutex);
    m_clients.clear();
    m_listener.Reset();
}

}  // namespace Rpc
}  // namespace Json
