#pragma once

#include "control/rpc/TcpServer.h"
#include "player/NotificationSink.h"

#include <cstdint>
#include <list>
#include <string>

// The service's TCP server, which is also where the player sends its
// notifications: being one object, the sink lives exactly as long as the
// transport it writes to.
class NotifyingTcpServer : public Json::Rpc::TcpServer, public INotificationSink {
public:
    NotifyingTcpServer(std::string address, uint16_t port);

    std::list<int> GetClients() const override;
    std::string WireText(const Json::Value& notification) const override;
    bool Send(int client, const std::string& text) override;

    // Queues `notification` for the listeners connected now: the clients
    // that asked for the notifications the player's clients do not hear.
    void SendToListeners(const Json::Value& notification);
};
