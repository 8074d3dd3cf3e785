#pragma once

#include "control/rpc/FileDescriptor.h"
#include "control/rpc/JsonStreamFramer.h"
#include "control/rpc/Server.h"
#include "core/Mutex.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace Json {
namespace Rpc {

// JSON-RPC over raw TCP (no framing besides the JSON values themselves),
// served by one thread through poll(2). Replies and notifications are queued
// per client and written without blocking, so a client that stops reading
// never delays another; one whose queue passes the limit is disconnected.
//
// Bind takes over a listening socket handed to the process at start
// (InheritedListener.h) instead of binding one, when there is one.
//
// Threads: Bind, Listen, WaitMessage and Close belong to the serving thread.
// GetClients and Send may be called from any thread.
class TcpServer : public Server {
public:
    static constexpr size_t kMaxRequestBytes = 1u << 20;  // an incomplete request past this is refused
    static constexpr size_t kMaxQueuedBytes = 4u << 20;   // per-client output queue

    TcpServer(std::string address, uint16_t port);
    ~TcpServer() override;

    bool Bind();
    bool Listen();
    const std::string& GetAddress() const { return m_address; }
    uint16_t GetPort() const { return m_port; }

    // Waits up to `timeoutMs` for activity, then serves everything that is ready.
    void WaitMessage(int timeoutMs);

    // Makes a WaitMessage in progress return at once.
    void Wake();

    // Sockets of the connected clients.
    std::list<int> GetClients() const EXCLUDES(m_mutex);

    // Queues `text` for one client; false when that client is gone.
    bool Send(int client, const std::string& text) EXCLUDES(m_mutex);

    // Closes the listening socket and every client.
    void Close() EXCLUDES(m_mutex);

private:
    struct Client {
        explicit Client(int fd) : socket(fd), framer(kMaxRequestBytes) {}
        FileDescriptor socket;
        JsonStreamFramer framer;  // serving thread only
        // The rest is guarded by the server's m_mutex.
        std::string outbox;
        size_t sent = 0;          // bytes of outbox already written
        bool closing = false;     // peer finished sending: close once flushed
        bool dead = false;        // close at the end of this round
    };

    void AcceptClients() EXCLUDES(m_mutex);
    void ReadFrom(Client& client) EXCLUDES(m_mutex);
    void Enqueue(Client& client, const std::string& text) REQUIRES(m_mutex);
    void FlushLocked(Client& client) REQUIRES(m_mutex);
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

    mutable CMutex m_mutex;  // membership of m_clients, outboxes, flags
    std::map<int, std::unique_ptr<Client>> m_clients GUARDED_BY(m_mutex);
};

}  // namespace Rpc
}  // namespace Json
