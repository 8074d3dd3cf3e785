#pragma once

#include "control/rpc/FileDescriptor.h"
#include "control/rpc/JsonStreamFramer.h"

#include <json/value.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace usbctl {

// The service could not be reached, went away or did not answer in time.
class ConnectionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One JSON value that the service sent: its text as it arrived and the
// parsed value (null when the text was not JSON).
struct Message {
    std::string text;
    Json::Value value;

    // A notification carries "method"; replies do not.
    bool IsNotification() const { return value.isObject() && value.isMember("method"); }
};

using NotificationHandler = std::function<void(const Message&)>;

// A TCP connection to the service speaking JSON-RPC 2.0: requests go out as
// compact JSON, incoming values are cut apart by their boundaries.
class Connection {
public:
    // Throws ConnectionError when the service cannot be reached.
    Connection(const std::string& host, int port);

    int Fd() const { return m_socket.Get(); }
    const std::string& Peer() const { return m_peer; }

    // Sends a request and returns the first incoming value that is not a
    // notification. Notifications arriving before it go to `onNotification`
    // (dropped when empty). Throws ConnectionError on time-out or close.
    Message Call(const std::string& method, const Json::Value& params, int timeoutMs,
                 const NotificationHandler& onNotification = {});

    // Sends a request with the given id; the caller reads the answer.
    void SendRequest(const std::string& method, const Json::Value& params, const Json::Value& id);

    // Waits up to `timeoutMs` for the next incoming value; false on time-out.
    // Throws ConnectionError when the service closed the connection.
    bool Receive(Message& message, int timeoutMs);

    // Takes a value that has already arrived; false when none is complete.
    bool TakeBuffered(Message& message);

    // Reads what the socket holds now (after poll said it is readable);
    // false when the service closed the connection.
    bool ReadAvailable();

    int NextId() { return m_nextId++; }

private:
    void SendAll(const std::string& bytes);

    Json::Rpc::FileDescriptor m_socket;
    Json::Rpc::JsonStreamFramer m_framer;
    std::string m_peer;
    int m_nextId = 1;
};

}  // namespace usbctl
