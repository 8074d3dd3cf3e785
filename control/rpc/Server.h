#pragma once

#include "control/rpc/RpcMethod.h"

#include <json/value.h>

#include <map>
#include <memory>
#include <string>

namespace Json {
namespace Rpc {

// JSON-RPC 2.0 error codes answered by the server itself.
enum ErrorCode {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INTERNAL_ERROR = -32603,
};

// The method table and the dispatch of one JSON text to it.
class Server {
public:
    virtual ~Server() = default;

    // Registers a method; a second registration of a name replaces the first,
    // so each call reaches exactly one method.
    void AddMethod(std::unique_ptr<CallbackMethod> method);
    bool HasMethod(const std::string& name) const;
    size_t MethodCount() const { return m_methods.size(); }

    // Answers one complete JSON text (a request or a batch). Returns the
    // reply's wire text, or "" when nothing is to be written back.
    std::string Process(const std::string& text);
    // The same; `malformed` tells whether the text was no JSON at all (the
    // reply is then the parse error), so a stream can skip the rest of it.
    std::string Process(const std::string& text, bool& malformed);

    // Error reply for `id`, as the server writes it.
    static Json::Value ErrorReply(int code, const char* message, const Json::Value& id);

private:
    Json::Value ProcessRequest(const Json::Value& request);

    std::map<std::string, std::unique_ptr<CallbackMethod>> m_methods;
};

}  // namespace Rpc
}  // namespace Json
