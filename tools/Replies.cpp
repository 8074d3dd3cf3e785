#include "tools/Replies.h"

#include "control/rpc/JsonText.h"

#include <json/writer.h>

namespace usbctl {

namespace {
std::string ErrorMessage(const Json::Value& error)
{
    if (!error.isObject()) {
        return "the service reported an error: " + CompactJson(error);
    }
    std::string message = error["message"].isString() ? error["message"].asString() : "error";
    if (error["code"].isInt()) {
        message += " (code " + std::to_string(error["code"].asInt()) + ")";
    }
    return message;
}
// A scalar as JSON text, UTF-8 kept as it is.
std::string ScalarText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

void AppendPretty(std::string& text, const Json::Value& value, size_t depth)
{
    const bool isObject = value.isObject();
    if ((!isObject && !value.isArray()) || value.empty()) {
        text += value.isNull() || !value.empty() ? ScalarText(value) : (isObject ? "{}" : "[]");
        return;
    }
    const std::string indent(2 * (depth + 1), ' ');
    text += isObject ? "{\n" : "[\n";
    const Json::Value::Members names = isObject ? value.getMemberNames() : Json::Value::Members();
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        text += indent;
        if (isObject) {
            text += ScalarText(Json::Value(names[i])) + ": ";
        }
        AppendPretty(text, isObject ? value[names[i]] : value[i], depth + 1);
        text += i + 1 < value.size() ? ",\n" : "\n";
    }
    text += std::string(2 * depth, ' ') + (isObject ? "}" : "]");
}
}  // namespace

ReplyOutcome CheckReply(const Json::Value& reply)
{
    if (!reply.isObject()) {
        return {true, "unexpected reply: " + CompactJson(reply)};
    }
    if (reply.isMember("error")) {
        return {true, ErrorMessage(reply["error"])};
    }
    const Json::Value& result = reply["result"];
    if (result.isBool() && !result.asBool()) {
        return {true, "the service answered false"};
    }
    if (result.isObject() && result["success"].isBool() && !result["success"].asBool()) {
        return {true, "the service reported no success"};
    }
    return {};
}

int ErrorCode(const Json::Value& reply)
{
    if (!reply.isObject() || !reply["error"].isObject() || !reply["error"]["code"].isInt()) {
        return 0;
    }
    return reply["error"]["code"].asInt();
}

std::string PrettyJson(const Json::Value& value)
{
    std::string text;
    AppendPretty(text, value, 0);
    return text;
}

std::string CompactJson(const Json::Value& value)
{
    std::string text = Json::Rpc::ToWireText(value);
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

}  // namespace usbctl
