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

#include <new>
#include <vector>

namespace Json {
namespace Rpc {

namespace {
constexpr size_t kReadChunk = 64 * 1024;
constexpr int kReadsPerRound = 16;  // bounds one client's share of a round
constexpr std::chrono::milliseconds kAcceptPause{250};
constexpr std::chrono::milliseconds kRoundsWithoutPoll{1};

std::string ParseErrorText()
{
    return ToWireText(Server::ErrorReply(PARSE_ERROR, "Parse error", Json::Value::nullSingleton()));
}
}  // namespace

TcpServer::TcpServer(std::string address, uint16_t port)
    : m_address(std::move(address)), m_port(port),
      m_wakeEvent(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    SetMaxReplyBytes(kMaxReplyBytes);
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

void TcpServer::ListenServingClient()
{
    if (!OnServingThread() || m_servingClient < 0) {
        return;
    }
    const CLockGuard<CMutex> lock(m_mutex);
    const auto found = m_clients.find(m_servingClient);
    if (found != m_clients.end()) {
        found->second->listens = true;
    }
}

std::list<int> TcpServer::GetListeners() const
{
    const CLockGuard<CMutex> lock(m_mutex);
    std::list<int> listeners;
    for (const auto& entry : m_clients) {
        if (!entry.second->dead && entry.second->listens) {
            listeners.push_back(entry.first);
        }
    }
    return listeners;
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
    if (Pending(client) + text.size() > kMaxOutputBytes) {
        // The client has stopped reading; it is dropped rather than let it
        // hold memory or anyone's time.
        client.dead = true;
        client.outbox.clear();
        client.held.clear();
        client.sent = 0;
        if (!OnServingThread()) {
            Wake();
        }
        return;
    }
    if (client.inBatch) {
        client.held += text;  // after the batch's "]", never inside it
        return;
    }
    const bool wasEmpty = client.sent == client.outbox.size();
    client.outbox += text;
    if (wasEmpty) {
        FlushLocked(client);
    }
    if (client.sent < client.outbox.size() && !OnServingThread()) {
        Wake();  // the serving thread must now watch for room to write
    }
}

// A reply is always taken: it is served only while the client's output has
// room, and its length is bounded by kMaxReplyBytes. It is written with the
// round's other replies (FlushAll), so a pipelining client gets them in one
// write rather than one each.
void TcpServer::EnqueueReply(Client& client, const std::string& text, bool inBatch)
{
    client.outbox += text;
    client.inBatch = inBatch;
    if (!inBatch && !client.held.empty()) {
        client.outbox += client.held;
        client.held.clear();
        client.held.shrink_to_fit();
    }
}

void TcpServer::FlushAll()
{
    const CLockGuard<CMutex> lock(m_mutex);
    for (const auto& entry : m_clients) {
        Client& client = *entry.second;
        if (!client.dead && client.sent < client.outbox.size()) {
            FlushLocked(client);
        }
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
        if (client.outbox.capacity() > kReadChunk) {
            client.outbox.shrink_to_fit();  // a big reply's buffer is not kept per client
        }
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
    bool busy = false;
    std::vector<pollfd> watched = WatchList(busy);
    const int ready = poll(watched.data(), watched.size(), busy ? 0 : timeoutMs);
    if (ready > 0) {
        HandleEvents(watched);
    }
    // Quick requests are served round after round without a poll between
    // them, for a millisecond at most: a client that has just sent waits no
    // longer for that, and a slow request ends the run at once.
    const auto pollAgainAt = std::chrono::steady_clock::now() + kRoundsWithoutPoll;
    while (ServeRound() && std::chrono::steady_clock::now() < pollAgainAt) {
    }
    FlushAll();
    CloseFinishedClients();
}

std::vector<pollfd> TcpServer::WatchList(bool& busy)
{
    std::vector<pollfd> watched;
    const bool acceptPaused = std::chrono::steady_clock::now() < m_acceptPausedUntil;
    watched.push_back({m_listener.Get(), static_cast<short>(acceptPaused ? 0 : POLLIN), 0});
    watched.push_back({m_wakeEvent.Get(), POLLIN, 0});
    const CLockGuard<CMutex> lock(m_mutex);
    watched.reserve(m_clients.size() + 2);
    for (const auto& entry : m_clients) {
        const Client& client = *entry.second;
        const bool hasRoom = Pending(client) < kMaxQueuedBytes;
        // A client is read only when none of its requests waits: what it
        // sends meanwhile stays in its socket, not in this process.
        short events = client.closing || HasWork(client) ? 0 : POLLIN;
        if (client.sent < client.outbox.size()) {
            events |= POLLOUT;
        }
        busy = busy || (HasWork(client) && hasRoom && !client.dead);
        watched.push_back({entry.first, events, 0});
    }
    return watched;
}

void TcpServer::HandleEvents(const std::vector<pollfd>& watched)
{
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
        if ((revents & (POLLIN | POLLHUP | POLLERR)) && !HasWork(client)) {
            ReadFrom(client);
        }
        if (revents & POLLOUT) {
            const CLockGuard<CMutex> lock(m_mutex);
            FlushLocked(client);
        }
    }
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
    std::vector<int> accepted;
    while (AcceptOne(accepted)) {
    }
    // What a new client sent with its connection is read now, so its first
    // request has its turn in this round, not after another client's.
    for (const int fd : accepted) {
        if (Client* const client = FindClientOnServingThread(fd)) {
            ReadFrom(*client);
        }
    }
}

// Accepts one pending connection; false when none is left to accept.
bool TcpServer::AcceptOne(std::vector<int>& accepted)
{
    FileDescriptor socket(accept4(m_listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.IsValid()) {
        if (errno == EINTR || errno == ECONNABORTED) {
            return true;
        }
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            m_acceptPausedUntil = std::chrono::steady_clock::now() + kAcceptPause;
        }
        return false;  // EAGAIN: all taken
    }
    const CLockGuard<CMutex> lock(m_mutex);
    if (m_clients.size() >= kMaxClients) {
        return true;  // closed at once: the connection count is bounded
    }
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const int fd = socket.Get();
    m_clients[fd] = std::make_unique<Client>(socket.Release());
    accepted.push_back(fd);
    return true;
}

void TcpServer::ReadFrom(Client& client)
{
    char buffer[kReadChunk];
    for (int round = 0; round < kReadsPerRound && !HasWork(client); ++round) {
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
        if (!CountUnfinished(client, static_cast<size_t>(received))) {
            Refuse(client);
            return;
        }
        try {
            client.framer.Append(buffer, static_cast<size_t>(received));
            TakeNextRequest(client);
        } catch (const std::bad_alloc&) {
            Refuse(client);
            return;
        }
        if (client.framer.Overflowed()) {
            Refuse(client);
            return;
        }
        if (static_cast<size_t>(received) < sizeof buffer) {
            return;
        }
    }
}

// Counts `adding` more bytes for the client's unfinished requests; false
// when all clients together would then hold more than the limit.
bool TcpServer::CountUnfinished(Client& client, size_t adding)
{
    const size_t held = client.framer.PendingBytes();
    const size_t others = m_unfinishedBytes - client.countedBytes;
    if (others + held + adding > kMaxUnfinishedBytes) {
        return false;
    }
    m_unfinishedBytes = others + held + adding;
    client.countedBytes = held + adding;
    return true;
}

// Moves the framer's next complete value into the client's request slot
// when that slot and its exchange are free.
void TcpServer::TakeNextRequest(Client& client)
{
    if (!HasWork(client) && client.framer.Next(client.request)) {
        client.hasRequest = true;
    }
    const size_t held = client.framer.PendingBytes();
    m_unfinishedBytes = m_unfinishedBytes - client.countedBytes + held;
    client.countedBytes = held;
}

// One parse error, then the connection closes: the client sent more than
// it may hold.
void TcpServer::Refuse(Client& client)
{
    const CLockGuard<CMutex> lock(m_mutex);
    Enqueue(client, ParseErrorText());
    client.dead = true;
}

bool TcpServer::HasRoom(const Client& client) const
{
    const CLockGuard<CMutex> lock(m_mutex);
    return !client.dead && Pending(client) < kMaxQueuedBytes;
}

bool TcpServer::ServeRound()
{
    std::vector<int> turn;
    {
        const CLockGuard<CMutex> lock(m_mutex);
        turn.reserve(m_clients.size());
        for (auto it = m_clients.lower_bound(m_nextTurn); it != m_clients.end(); ++it) {
            turn.push_back(it->first);
        }
        for (auto it = m_clients.begin(); it != m_clients.end() && it->first < m_nextTurn; ++it) {
            turn.push_back(it->first);
        }
    }
    bool served = false;
    for (const int fd : turn) {
        Client* const client = FindClientOnServingThread(fd);
        if (client == nullptr || !HasWork(*client) || !HasRoom(*client)) {
            continue;
        }
        if (m_gate && !m_gate()) {
            return false;
        }
        if (!served) {
            m_nextTurn = fd + 1;  // who went first this round goes last next round
            served = true;
        }
        ServeOne(*client);
    }
    return served;
}

void TcpServer::ServeOne(Client& client)
{
    std::string text;
    m_servingClient = client.socket.Get();
    if (client.exchange.Finished()) {
        bool malformed = false;
        client.exchange = Open(client.request, text, malformed);
        client.request.clear();
        client.request.shrink_to_fit();
        client.hasRequest = false;
        if (malformed) {
            client.framer.SkipMalformedRun();  // one error for the whole bad run
        }
    }
    if (text.empty()) {
        text = Step(client.exchange);
    }
    m_servingClient = -1;
    TakeNextRequest(client);
    const CLockGuard<CMutex> lock(m_mutex);
    if (!text.empty() || !client.exchange.WritingBatch()) {
        EnqueueReply(client, text, client.exchange.WritingBatch());
    }
    // A client with nothing more to ask gets its reply now; a pipelining
    // one gets its replies together when the run of rounds ends.
    if (!HasWork(client)) {
        FlushLocked(client);
    }
}

void TcpServer::CloseFinishedClients()
{
    const CLockGuard<CMutex> lock(m_mutex);
    for (auto it = m_clients.begin(); it != m_clients.end();) {
        Client& client = *it->second;
        const bool flushed = client.sent == client.outbox.size() && client.held.empty();
        if (client.dead || (client.closing && flushed && !HasWork(client))) {
            m_unfinishedBytes -= client.countedBytes;
            it = m_clients.erase(it);
            m_acceptPausedUntil = {};  // a descriptor is free again
        } else {
            ++it;
        }
    }
}

void TcpServer::Close()
{
    const CLockGuard<CMutex> lock(m_mutex);
    m_clients.clear();
    m_unfinishedBytes = 0;
    m_listener.Reset();
}

}  // namespace Rpc
}  // namespace Json
