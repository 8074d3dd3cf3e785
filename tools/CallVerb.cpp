// call: any method with any params, the reply shown as it is.
#include "tools/Verbs.h"

#include "control/rpc/JsonText.h"
#include "tools/Replies.h"

#include <chrono>
#include <optional>
#include <ostream>

namespace usbctl {

namespace {
using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

Json::Value ParamsArgument(const VerbContext& context)
{
    if (context.Arguments().size() < 2) {
        return Json::Value();
    }
    Json::Value params;
    if (!Json::Rpc::ParseJson(context.Arguments()[1], params)) {
        throw UsageError("PARAMS is not valid JSON: " + context.Arguments()[1]);
    }
    return params;
}

bool HasId(const Message& message, int id)
{
    const Json::Value& value = message.value;
    return value.isObject() && value["id"].isIntegral() && value["id"].asInt64() == id;
}

// Some methods ("notify") never answer. A ping sent right behind the request
// is answered after it, as the service answers in order: when the ping's
// reply comes first, the method sent none.
std::optional<Message> CallWithFence(Connection& connection, const std::string& method,
                                     const Json::Value& params, int timeoutMs)
{
    const int id = connection.NextId();
    const int fenceId = connection.NextId();
    connection.SendRequest(method, params, id);
    connection.SendRequest("ping", Json::Value(), fenceId);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::optional<Message> reply;
    Message message;
    while (connection.Receive(message, RemainingMs(deadline))) {
        if (message.IsNotification()) {
            continue;
        }
        if (HasId(message, fenceId)) {
            return reply;
        }
        if (!reply) {
            reply = message;
        }
    }
    if (reply) {
        return reply;  // the fence went missing; the reply is what counts
    }
    throw ConnectionError("no reply to \"" + method + "\" from " + connection.Peer());
}
}  // namespace

int RunCall(const VerbContext& context)
{
    const std::string& method = context.Arguments()[0];
    const Json::Value params = ParamsArgument(context);
    Connection connection = context.Connect();
    const std::optional<Message> reply = CallWithFence(connection, method, params, context.TimeoutMs());
    if (!reply) {
        context.err << "usb-media-ctl: \"" << method << "\" sent no reply\n" << std::flush;
        return kExitSuccess;
    }
    const bool readable = !context.Json() && !reply->value.isNull();
    context.out << (readable ? PrettyJson(reply->value) : reply->text) << "\n" << std::flush;
    const ReplyOutcome outcome = CheckReply(reply->value);
    if (outcome.failed) {
        ReportFailure(context, outcome.message);
        return kExitFailure;
    }
    return kExitSuccess;
}

}  // namespace usbctl
