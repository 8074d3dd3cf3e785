#pragma once

#include <json/value.h>

class CUsbMediaPlayer;

// The JSON-RPC methods of the service. Each fills the whole reply ("jsonrpc",
// "id", then "error" beside "result" when the player's operation failed) and
// always returns true: failures travel inside the reply.
class UsbMediaRequestHandler {
public:
    UsbMediaRequestHandler();
    virtual ~UsbMediaRequestHandler() = default;

    UsbMediaRequestHandler(const UsbMediaRequestHandler&) = delete;
    UsbMediaRequestHandler& operator=(const UsbMediaRequestHandler&) = delete;

    // Test methods.
    bool Print(const Json::Value& request, Json::Value& response);
    bool Notify(const Json::Value& request, Json::Value& response);
    bool ping(const Json::Value& request, Json::Value& response);

    CUsbMediaPlayer* Player() const { return m_pPlayer; }

private:
    CUsbMediaPlayer* m_pPlayer;
};
