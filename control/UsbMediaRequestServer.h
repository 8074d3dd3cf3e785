#pragma once

#include "control/UsbMediaRequestHandler.h"

#include <pthread.h>

#include <atomic>
#include <set>
#include <string>

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

// Owns the JSON-RPC server: its method table, bound to the embedded handler,
// and the listener thread that binds, listens and serves until stopped.
class UsbMediaRequestServer {
public:
    static constexpr int RPC_PORT = 8885;
    static constexpr int kBindAttempts = 33;
    static constexpr useconds_t kBindRetryMicroseconds = 250000;
    static constexpr int kWaitMilliseconds = 1000;

    UsbMediaRequestServer() = default;
    virtual ~UsbMediaRequestServer() = default;

    UsbMediaRequestServer(const UsbMediaRequestServer&) = delete;
    UsbMediaRequestServer& operator=(const UsbMediaRequestServer&) = delete;

    // Creates the TCP server, hands it to the player and registers the methods.
    void Init(const std::string& address);

    static void* InternalThreadEntryFunc(void* self);
    void Run();

    // Created by Init and deliberately never deleted: the player may still
    // push notifications through it until the process ends.
    NotifyingTcpServer* m_pServer = nullptr;
    UsbMediaRequestHandler m_handler;
    pthread_t m_thread{};
    std::atomic<bool> m_isRunning{false};
};
