#pragma once

#include "control/UsbMediaRequestHandler.h"

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>

class NotifyingTcpServer;

namespace Json {
namespace Rpc {
class Server;
}  // namespace Rpc
}  // namespace Json

// Registers the service's method table on `server`, every method bound to
// `handler`, except the names in `excluded`. The daemon and the fuzzer share it.
void RegisterUsbMediaMethods(Json::Rpc::Server& server, UsbMediaRequestHandler& handler,
                             const std::set<std::string>& excluded = {});

// Owns the JSON-RPC server: the TCP server, its method table, bound to the
// embedded handler, and the listener thread that binds, listens and serves
// until stopped. Shutdown order (main): StopListener, then the player's
// Shutdown, then Close.
class UsbMediaRequestServer {
public:
    static constexpr int kBindAttempts = 33;
    static constexpr useconds_t kBindRetryMicroseconds = 250000;
    static constexpr int kWaitMilliseconds = 1000;

    UsbMediaRequestServer();
    // Stops the listener and closes the server if main has not.
    virtual ~UsbMediaRequestServer();

    UsbMediaRequestServer(const UsbMediaRequestServer&) = delete;
    UsbMediaRequestServer& operator=(const UsbMediaRequestServer&) = delete;

    // Takes back the suspension snapshot kept in the state folder, creates the
    // TCP server, hands it to the player and registers the methods.
    void Init(const std::string& address);

    // Starts the listener thread (Run); false when it could not be started.
    bool StartListener();
    // Ends the listener's loop at once and joins its thread. The loop closes
    // the listening socket and every client on its way out.
    void StopListener();
    // Takes the TCP server from the player and deletes it; call once the
    // player is stopped, as it notifies through the server until then.
    void Close();

    UsbMediaRequestHandler m_handler;

private:
    // The listener thread: bind, listen, serve until m_isRunning drops.
    void Run();

    std::unique_ptr<NotifyingTcpServer> m_pServer;
    std::thread m_thread;
    std::atomic<bool> m_isRunning{false};
};
