#pragma once

#include "control/rpc/RpcMethod.h"

#include <json/value.h>

#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Json {
namespace Rpc {

// JSON-RPC 2.0 error codes answered by the server itself.
enum ErrorCode {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INTERNAL_ERROR = -32603,
};

// One JSON text being answered a request at a time: a single request, or a
// batch whose replies are written out element by element as they are made,
// so a batch never holds more than one reply in memory.
class Exchange {
public:
    bool Finished() const { return m_next >= m_requests.size(); }
    // A batch's "[" is written and its "]" is not: nothing else may be
    // written to the client in between.
    bool WritingBatch() const { return m_opened && !Finished(); }

private:
    friend class Server;
    std::vector<Json::Value> m_requests;
    std::vector<std::string> m_rawIds;  // each request's numeric "id" as sent, else ""
    bool m_isBatch = false;
    bool m_opened = false;
    size_t m_next = 0;
};

// The method table and the dispatch of one JSON text to it.
class Server {
public:
    // A longer batch is refused whole with one "Invalid Request".
    static constexpr size_t kMaxBatchRequests = 256;

    virtual ~Server() = default;

    // Registers a method; a second registration of a name replaces the first,
    // so each call reaches exactly one method.
    void AddMethod(std::unique_ptr<CallbackMethod> method);
    bool HasMethod(const std::string& name) const;
    size_t MethodCount() const { return m_methods.size(); }

    // A reply longer than this is replaced by a "reply too large" error.
    void SetMaxReplyBytes(size_t bytes) { m_maxReplyBytes = bytes; }

    // Takes one complete JSON text apart into the requests it carries. What
    // must be written at once (a parse error, a refused batch) is returned in
    // `reply`; `malformed` tells whether the text was no JSON at all, so a
    // stream can skip the rest of it.
    Exchange Open(const std::string& text, std::string& reply, bool& malformed);
    // Answers the exchange's next request; returns the wire text to write
    // next ("" when that request is a notification).
    std::string Step(Exchange& exchange);

    // Answers one complete JSON text all at once. Returns the reply's wire
    // text, or "" when nothing is to be written back.
    std::string Process(const std::string& text);
    std::string Process(const std::string& text, bool& malformed);

    // Error reply for `id`, as the server writes it.
    static Json::Value ErrorReply(int code, const char* message, const Json::Value& id);

private:
    Json::Value ProcessRequest(const Json::Value& request);
    // The compact reply text (no newline) to `request`, "" for none.
    std::string Answer(const Json::Value& request, const std::string& rawId);

    std::map<std::string, std::unique_ptr<CallbackMethod>> m_methods;
    size_t m_maxReplyBytes = std::numeric_limits<size_t>::max();
};

}  // namespace Rpc
}  // namespace Json
