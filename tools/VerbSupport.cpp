#include "tools/Verbs.h"

#include "tools/Formatting.h"
#include "tools/Replies.h"

#include <ostream>

namespace usbctl {

std::string VerbContext::ArgumentOr(size_t index, const std::string& fallback) const
{
    return index < invocation.arguments.size() ? invocation.arguments[index] : fallback;
}

Connection VerbContext::Connect() const
{
    return Connection(invocation.global.host, invocation.global.port);
}

void ReportFailure(const VerbContext& context, const std::string& message)
{
    context.err << "usb-media-ctl: " << message << "\n" << std::flush;
}

RequestOutcome Request(Connection& connection, const VerbContext& context, const std::string& method,
                       const Json::Value& params, const std::string& falseMessage)
{
    const Message reply = connection.Call(method, params, context.TimeoutMs());
    if (context.Json()) {
        context.out << reply.text << "\n" << std::flush;
    }
    ReplyOutcome outcome = CheckReply(reply.value);
    const bool bareFalse = reply.value.isObject() && !reply.value.isMember("error") &&
                           reply.value["result"].isBool();
    if (outcome.failed && bareFalse && !falseMessage.empty()) {
        outcome.message = falseMessage;
    }
    if (outcome.failed) {
        ReportFailure(context, outcome.message);
    }
    return {!outcome.failed, reply.value};
}

int RunRequest(const VerbContext& context, const std::string& method, const Json::Value& params,
               const ResultPrinter& describe, const std::string& falseMessage)
{
    Connection connection = context.Connect();
    const RequestOutcome outcome = Request(connection, context, method, params, falseMessage);
    if (!outcome.ok) {
        return kExitFailure;
    }
    if (!context.Json() && describe) {
        describe(outcome.Result());
        context.out << std::flush;
    }
    return kExitSuccess;
}

long long NumberArgument(const std::string& text, const std::string& what, long long min, long long max)
{
    const auto value = ParseInteger(text);
    if (!value || *value < min || *value > max) {
        throw UsageError(what + " must be a whole number from " + std::to_string(min) + " to " +
                         std::to_string(max) + ", not \"" + text + "\"");
    }
    return *value;
}

bool OnOffArgument(const std::string& text, const std::string& what)
{
    const auto on = ParseOnOff(text);
    if (!on) {
        throw UsageError(what + " takes on or off, not \"" + text + "\"");
    }
    return *on;
}

}  // namespace usbctl
