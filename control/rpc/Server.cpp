#include "control/rpc/Server.h"

#include "control/rpc/JsonText.h"

namespace Json {
namespace Rpc {

namespace {
// The request's "id" when it is one JSON-RPC allows, else null.
Json::Value RequestId(const Json::Value& request)
{
    if (!request.isObject() || !request.isMember("id")) {
        return Json::Value::nullSingleton();
    }
    const Json::Value& id = request["id"];
    if (id.isNull() || id.isString() || id.isNumeric()) {
        return id;
    }
    return Json::Value::nullSingleton();
}

bool IsRequestObject(const Json::Value& request)
{
    if (!request.isObject()) {
        return false;
    }
    const Json::Value& version = request["jsonrpc"];
    const Json::Value& method = request["method"];
    return version.isString() && version.asString() == "2.0" && method.isString();
}
}  // namespace

void Server::AddMethod(std::unique_ptr<CallbackMethod> method)
{
    const std::string name = method->GetName();
    m_methods[name] = std::move(method);
}

bool Server::HasMethod(const std::string& name) const
{
    return m_methods.count(name) != 0;
}

Json::Value Server::ErrorReply(int code, const char* message, const Json::Value& id)
{
    Json::Value reply(Json::objectValue);
    reply["jsonrpc"] = "2.0";
    reply["id"] = id;
    reply["error"]["code"] = code;
    reply["error"]["message"] = message;
    return reply;
}

std::string Server::Process(const std::string& text)
{
    bool malformed = false;
    return Process(text, malformed);
}

std::string Server::Process(const std::string& text, bool& malformed)
{
    Json::Value document;
    malformed = !ParseJson(text, document);
    if (malformed) {
        return ToWireText(ErrorReply(PARSE_ERROR, "Parse error", Json::Value::nullSingleton()));
    }
    if (!document.isArray()) {
        const Json::Value reply = ProcessRequest(document);
        return reply.isNull() ? std::string() : ToWireText(reply);
    }
    if (document.empty()) {
        return ToWireText(ErrorReply(INVALID_REQUEST, "Invalid Request", Json::Value::nullSingleton()));
    }
    Json::Value replies(Json::arrayValue);
    for (const Json::Value& request : document) {
        Json::Value reply = ProcessRequest(request);
        if (!reply.isNull()) {
            replies.append(std::move(reply));
        }
    }
    return replies.empty() ? std::string() : ToWireText(replies);
}

Json::Value Server::ProcessRequest(const Json::Value& request)
{
    if (!IsRequestObject(request)) {
        return ErrorReply(INVALID_REQUEST, "Invalid Request", RequestId(request));
    }
    const auto found = m_methods.find(request["method"].asString());
    if (found == m_methods.end()) {
        return ErrorReply(METHOD_NOT_FOUND, "Method not found", RequestId(request));
    }
    Json::Value response;
    try {
        found->second->Call(request, response);
    } catch (const Json::Exception&) {
        // Methods read their parameters leniently, so a throwing accessor
        // is the method's own fault, not the client's: no "Invalid params".
        return ErrorReply(INTERNAL_ERROR, "Internal error", RequestId(request));
    }
    return response;
}

}  // namespace Rpc
}  // namespace Json
