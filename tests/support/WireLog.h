#pragma once

#include "control/rpc/JsonStreamFramer.h"

#include <map>
#include <string>

namespace testing_support {

// Records what one test client receives, so that a later check can hold
// every message against docs/protocol/openrpc.json
// (tests/protocol/check_wire_log.py). Active only when USBMEDIA_WIRE_LOG_DIR
// is set: each test process then appends to DIR/wire-PID.jsonl, one line
// {"method":..., "text":...} per message, "method" naming the request that
// a reply answers when the client sent it.
class WireLog {
public:
    static bool Enabled();

    WireLog();

    // Bytes the client sent: requests with an "id" are remembered by it.
    void Sent(const std::string& bytes);
    // One line the client read.
    void Received(const std::string& line);

private:
    void Remember(const std::string& requestText);

    Json::Rpc::JsonStreamFramer m_sent;
    std::map<std::string, std::string> m_methodById;  // compact id text -> method
};

}  // namespace testing_support
