#pragma once

// What the player needs of the transport to push notifications: the clients
// connected now, the text a notification goes out as, and a send to one
// client that does not block. The player owns this interface; the control
// layer implements it over the JSON-RPC TCP server (control/TcpNotificationSink.h),
// so the player neither includes nor links the transport.

#include <json/value.h>

#include <list>
#include <string>

class INotificationSink {
public:
    // Descriptors of the connected clients.
    virtual std::list<int> GetClients() const = 0;

    // The exact text of `notification` on the wire.
    virtual std::string WireText(const Json::Value& notification) const = 0;

    // Queues `text` for one client; false when that client is gone.
    virtual bool Send(int client, const std::string& text) = 0;

protected:
    ~INotificationSink() = default;
};
