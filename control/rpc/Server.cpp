#include "control/rpc/Server.h"

#include "control/rpc/JsonText.h"

#include <new>

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

// A numeric "id" exactly as the client wrote it: the parser keeps numbers as
// 64-bit integers or doubles, which would echo 18446744073709551616 or 0.1
// changed. Empty when the id is not a number.
std::string RawId(const Json::Value& request, const std::string& text)
{
    if (!request.isObject() || !request.isMember("id") || !request["id"].isNumeric()) {
        return std::string();
    }
    const Json::Value& id = request["id"];
    const ptrdiff_t start = id.getOffsetStart();
    const ptrdiff_t limit = id.getOffsetLimit();
    if (start < 0 || limit <= start || static_cast<size_t>(limit) > text.size()) {
        return std::string();
    }
    return text.substr(static_cast<size_t>(start), static_cast<size_t>(limit - start));
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

// True when `text` is an array of more than `limit` elements, counted on the
// text so that a huge batch is refused before it is parsed into memory.
bool IsArrayLongerThan(const std::string& text, size_t limit)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || text[first] != '[') {
        return false;
    }
    size_t separators = 0;
    int depth = 0;
    bool inString = false;
    bool escape = false;
    for (size_t i = first; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (escape) {
                escape = false;
            } else if (c == '\\') {
                escape = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == ',' && depth == 1 && ++separators >= limit) {
            return true;
        }
    }
    return false;
}

// The wire text of a reply without its newline; a numeric id goes out as
// the client sent it.
std::string ReplyText(const Json::Value& reply, const Json::Value& request, const std::string& rawId)
{
    if (rawId.empty() || !reply.isObject() || !reply.isMember("id") || reply["id"] != RequestId(request)) {
        return ToCompactText(reply);
    }
    std::string text = "{";
    for (const std::string& name : reply.getMemberNames()) {
        if (text.size() > 1) {
            text += ',';
        }
        text += ToCompactText(Json::Value(name));
        text += ':';
        text += name == "id" ? rawId : ToCompactText(reply[name]);
    }
    text += '}';
    return text;
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

Exchange Server::Open(const std::string& text, std::string& reply, bool& malformed)
{
    Exchange exchange;
    reply.clear();
    malformed = false;
    if (IsArrayLongerThan(text, kMaxBatchRequests)) {
        reply = ToWireText(ErrorReply(INVALID_REQUEST, "Invalid Request", Json::Value::nullSingleton()));
        return exchange;
    }
    try {
        Json::Value document;
        malformed = !ParseJson(text, document);
        if (malformed) {
            reply = ToWireText(ErrorReply(PARSE_ERROR, "Parse error", Json::Value::nullSingleton()));
            return exchange;
        }
        if (!document.isArray()) {
            exchange.m_rawIds.push_back(RawId(document, text));
            exchange.m_requests.push_back(std::move(document));
            return exchange;
        }
        if (document.empty()) {
            reply = ToWireText(ErrorReply(INVALID_REQUEST, "Invalid Request", Json::Value::nullSingleton()));
            return exchange;
        }
        exchange.m_isBatch = true;
        for (Json::Value& request : document) {
            exchange.m_rawIds.push_back(RawId(request, text));
            exchange.m_requests.push_back(std::move(request));
        }
    } catch (const std::bad_alloc&) {
        exchange = Exchange();
        reply = ToWireText(ErrorReply(INTERNAL_ERROR, "out of memory", Json::Value::nullSingleton()));
    }
    return exchange;
}

std::string Server::Step(Exchange& exchange)
{
    if (exchange.Finished()) {
        return std::string();
    }
    const size_t index = exchange.m_next++;
    const std::string element = Answer(exchange.m_requests[index], exchange.m_rawIds[index]);
    exchange.m_requests[index] = Json::Value();  // answered: its memory goes now
    if (!exchange.m_isBatch) {
        return element.empty() ? element : element + "\n";
    }
    std::string text;
    if (!element.empty()) {
        text = exchange.m_opened ? "," : "[";
        exchange.m_opened = true;
        text += element;
    }
    if (exchange.Finished() && exchange.m_opened) {
        text += "]\n";
    }
    return text;
}

std::string Server::Process(const std::string& text)
{
    bool malformed = false;
    return Process(text, malformed);
}

std::string Server::Process(const std::string& text, bool& malformed)
{
    std::string reply;
    Exchange exchange = Open(text, reply, malformed);
    while (!exchange.Finished()) {
        reply += Step(exchange);
    }
    return reply;
}

std::string Server::Answer(const Json::Value& request, const std::string& rawId)
{
    try {
        const Json::Value reply = ProcessRequest(request);
        if (reply.isNull()) {
            return std::string();
        }
        std::string text = ReplyText(reply, request, rawId);
        if (text.size() <= m_maxReplyBytes) {
            return text;
        }
        text.clear();
        text.shrink_to_fit();
        return ReplyText(ErrorReply(INTERNAL_ERROR, "reply too large", RequestId(request)), request, rawId);
    } catch (const std::bad_alloc&) {
        // The request could not be answered in the memory there is; the
        // service goes on, and so does the client's connection.
        return ReplyText(ErrorReply(INTERNAL_ERROR, "out of memory", RequestId(request)), request, rawId);
    }
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
        // The service's methods read their parameters leniently and never
        // throw; a method that did is a fault of the service, not the client.
        return ErrorReply(INTERNAL_ERROR, "Internal error", RequestId(request));
    }
    return response;
}

}  // namespace Rpc
}  // namespace Json
