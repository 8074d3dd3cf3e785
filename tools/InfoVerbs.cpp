// status and art: what the player is doing and the current cover image.
#include "tools/Verbs.h"

#include "tools/Replies.h"
#include "tools/Reports.h"

#include <chrono>
#include <optional>
#include <ostream>

namespace usbctl {

namespace {
using Clock = std::chrono::steady_clock;
constexpr long long kDefaultArtWaitSeconds = 5;
constexpr long long kMaxArtWaitSeconds = 3600;
const std::string kAlbumArtNotification = "trackAlbumArtNotification";

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

bool IsAlbumArt(const Message& message)
{
    return message.IsNotification() && message.value["method"] == kAlbumArtNotification;
}

// Waits for the album-art announcement; the one that may have come with
// the reply counts too.
std::optional<Message> WaitForAlbumArt(Connection& connection, std::optional<Message> early,
                                       int timeoutMs)
{
    if (early) {
        return early;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Message message;
    while (connection.Receive(message, RemainingMs(deadline))) {
        if (IsAlbumArt(message)) {
            return message;
        }
    }
    return std::nullopt;
}
}  // namespace

int RunStatus(const VerbContext& context)
{
    Connection connection = context.Connect();
    bool ok = true;
    const auto resultOf = [&](const std::string& method, const Json::Value& params) {
        const RequestOutcome outcome = Request(connection, context, method, params);
        ok = ok && outcome.ok;
        return outcome.reply.isObject() ? outcome.Result() : Json::Value();
    };
    Json::Value usbParams(Json::objectValue);
    usbParams["deviceName"] = "usb1";
    StatusResults results;
    results.playerState = resultOf("getCurrentPlayerState", Json::Value());
    results.trackInfo = resultOf("getCurrentTrackInfoUSB", Json::Value());
    results.repeat = resultOf("getRepeatModeUSB", Json::Value());
    results.shuffle = resultOf("isShuffleEnabledUSB", Json::Value());
    results.usb = resultOf("isUSBconnected", usbParams);
    if (!context.Json()) {
        context.out << FormatStatus(results) << std::flush;
    }
    return ok ? kExitSuccess : kExitFailure;
}

int RunAlbumArt(const VerbContext& context)
{
    const long long waitSeconds = NumberArgument(
        context.invocation.Option("--wait").value_or(std::to_string(kDefaultArtWaitSeconds)), "--wait", 1,
        kMaxArtWaitSeconds);
    Connection connection = context.Connect();
    std::optional<Message> early;
    const Message reply = connection.Call("getTrackAlbumArt", Json::Value(), context.TimeoutMs(),
                                          [&](const Message& message) {
                                              if (IsAlbumArt(message)) {
                                                  early = message;
                                              }
                                          });
    if (context.Json()) {
        context.out << reply.text << "\n" << std::flush;
    }
    const ReplyOutcome outcome = CheckReply(reply.value);
    if (outcome.failed) {
        ReportFailure(context, outcome.message);
        return kExitFailure;
    }
    const std::optional<Message> art =
        WaitForAlbumArt(connection, early, static_cast<int>(waitSeconds * 1000));
    if (!art) {
        ReportFailure(context, "no album art arrived within " + std::to_string(waitSeconds) +
                                   " s (the track may have no cover image)");
        return kExitFailure;
    }
    if (context.Json()) {
        context.out << art->text << "\n" << std::flush;
    }
    const std::string path = art->value["params"]["artFilePath"].asString();
    if (path.empty()) {
        ReportFailure(context, "the service wrote no album art file (it could not, or the image is over 16 MiB)");
        return kExitFailure;
    }
    if (!context.Json()) {
        context.out << path << "\n" << std::flush;
    }
    return kExitSuccess;
}

}  // namespace usbctl
