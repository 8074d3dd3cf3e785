#pragma once

#include "control/rpc/FileDescriptor.h"
#include "control/rpc/JsonStreamFramer.h"
#include "control/rpc/Server.h"
#include "core/Mutex.h"

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Json {
namespace Rpc {

// JSON-RPC over raw TCP (no framing besides the JSON values themselves),
// served by one thread through poll(2). Clients are served round-robin, one
// request (or one element of a batch) each per round, so a client with a
// queue of slow requests delays another by at most one of them. Replies and
// notifications are queued per client and written without blocking; a
// client's next request waits while its output is full, and one that lets
// notifications pile up past the hard limit is disconnected.
//
// Bind takes over a listening socket handed to the process at start
// (InheritedListener.h) instead of binding one, when there is one.
//
// Threads: Bind, Listen, WaitMessage and Close belong to the serving thread.
// GetClients and Send may be called from any thread.
class TcpServer : public Server {
public:
    static constexpr size_t kMaxRequestBytes = 1u << 20;      // an incomplete request past this is refused
    static constexpr size_t kMaxUnfinishedBytes = 64u << 20;  // incomplete requests of all clients together
    static constexpr size_t kMaxQueuedBytes = 4u << 20;       // a client's requests wait while its output holds this
    static constexpr size_t kMaxReplyBytes = kMaxQueuedBytes;  // a longer reply is replaced by an error
    static constexpr size_t kMaxOutputBytes = kMaxQueuedBytes + kMaxReplyBytes;  // past this the client is dropped
    static constexpr size_t kMaxClients = 256;                // more are accepted and closed at once

    // Asked before every request is served; false ends the current
    // WaitMessage at once and leaves the rest queued.
    using RequestGate = std::function<bool()>;

    TcpServer(std::string address, uint16_t port);
    ~TcpServer() override;

    bool Bind();
    bool Listen();
    const std::string& GetAddress() const { return m_address; }
    uint16_t GetPort() const { return m_port; }

    void SetRequestGate(RequestGate gate) { m_gate = std::move(gate); }

    // Waits up to `timeoutMs` for activity (not at all while a request
    // waits), then serves one round.
    void WaitMessage(int timeoutMs);

    // Makes a WaitMessage in progress return at once.
    void Wake();

    // Sockets of the connected clients.
    std::list<int> GetClients() const EXCLUDES(m_mutex);

    // Queues `text` for one client; false when that client is gone.
    bool Send(int client, const std::string& text) EXCLUDES(m_mutex);

    // Closes the listening socket and every client.
    void Close() EXCLUDES(m_mutex);

    // Listeners: the clients that asked for notifications not every client
    // hears. A method calls ListenServingClient to make the client whose
    // request it answers one (serving thread only, during the request).
    void ListenServingClient() EXCLUDES(m_mutex);
    std::list<int> GetListeners() const EXCLUDES(m_mutex);

private:
    struct Client {
        explicit Client(int fd) : socket(fd), framer(kMaxRequestBytes) {}
        FileDescriptor socket;
        // Serving thread only:
        JsonStreamFramer framer;
        std::string request;      // the next complete JSON text, not opened yet
        bool hasRequest = false;
        Exchange exchange;        // the text being answered
        size_t countedBytes = 0;  // framer bytes counted in m_unfinishedBytes
        // The rest is guarded by the server's m_mutex.
        std::string outbox;
        size_t sent = 0;          // bytes of outbox already written
        std::string held;         // notifications waiting for a batch reply to end
        bool inBatch = false;     // a batch reply is being written
        bool closing = false;     // peer finished sending: close once answered and flushed
        bool dead = false;        // close at the end of this round
        bool listens = false;     // hears what is sent to the listeners
    };

    static bool HasWork(const Client& client) { return client.hasRequest || !client.exchange.Finished(); }
    static size_t Pending(const Client& client) { return client.outbox.size() - client.sent + client.held.size(); }

    // The descriptors to poll; `busy` tells whether a request can be served now.
    std::vector<pollfd> WatchList(bool& busy) EXCLUDES(m_mutex);
    void HandleEvents(const std::vector<pollfd>& watched) EXCLUDES(m_mutex);
    void AcceptClients() EXCLUDES(m_mutex);
    bool AcceptOne(std::vector<int>& accepted) EXCLUDES(m_mutex);
    void ReadFrom(Client& client) EXCLUDES(m_mutex);
    bool CountUnfinished(Client& client, size_t adding);
    void TakeNextRequest(Client& client);
    void Refuse(Client& client) EXCLUDES(m_mutex);
    // Serves each client with a request one of them; false when none was served.
    bool ServeRound() EXCLUDES(m_mutex);
    void ServeOne(Client& client) EXCLUDES(m_mutex);
    bool HasRoom(const Client& client) const EXCLUDES(m_mutex);
    void Enqueue(Client& client, const std::string& text) REQUIRES(m_mutex);
    void EnqueueReply(Client& client, const std::string& text, bool inBatch) REQUIRES(m_mutex);
    void FlushLocked(Client& client) REQUIRES(m_mutex);
    void FlushAll() EXCLUDES(m_mutex);
    void CloseFinishedClients() EXCLUDES(m_mutex);
    // The client on `fd`, or null. Serving thread only: membership changes
    // only there, so the lookup needs no lock.
    Client* FindClientOnServingThread(int fd);
    bool OnServingThread() const { return std::this_thread::get_id() == m_servingThread; }

    // Asked for at construction; once bound, where the socket really listens
    // (an inherited socket chose its own). Serving thread only after Bind.
    std::string m_address;
    uint16_t m_port;
    FileDescriptor m_listener;
    FileDescriptor m_wakeEvent;
    std::atomic<std::thread::id> m_servingThread{};
    RequestGate m_gate;

    // Serving thread only:
    size_t m_unfinishedBytes = 0;  // framer bytes held for all clients
    int m_servingClient = -1;      // the client whose request runs now
    int m_nextTurn = -1;           // the client served first in the next round
    // With the descriptor table full, the listening socket is not watched
    // until a client closes or this time passes: accept would fail at once
    // and poll would report it ready again.
    std::chrono::steady_clock::time_point m_acceptPausedUntil{};

    mutable CMutex m_mutex;  // membership of m_clients, outboxes, flags
    std::map<int, std::unique_ptr<Client>> m_clients GUARDED_BY(m_mutex);
};

}  // namespace Rpc
}  // namespace Json
