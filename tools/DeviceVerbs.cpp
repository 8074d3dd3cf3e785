// usb, power and resume-info: device events and the suspension snapshot.
#include "tools/Verbs.h"

#include "tools/Reports.h"

#include <ostream>

namespace usbctl {

namespace {
bool PluggedArgument(const std::string& word)
{
    if (word == "plugged") {
        return true;
    }
    if (word == "unplugged") {
        return false;
    }
    throw UsageError("usb takes plugged or unplugged, not \"" + word + "\"");
}

std::string DeviceArgument(const std::string& device)
{
    if (device != "usb1" && device != "usb2") {
        throw UsageError("usb takes the device usb1 or usb2, not \"" + device + "\"");
    }
    return device;
}
}  // namespace

int RunUsb(const VerbContext& context)
{
    const std::string device = DeviceArgument(context.Arguments()[0]);
    const bool plugged = PluggedArgument(context.Arguments()[1]);
    Json::Value params(Json::objectValue);
    params["usbDevice"] = device;
    params["usbConnected"] = plugged;
    params["isSupported"] = !context.invocation.Has("--not-supported");
    params["isReadable"] = !context.invocation.Has("--unreadable");
    return RunRequest(context, "usbConnectionEvent", params, [&](const Json::Value&) {
        context.out << device << ": " << (plugged ? "plugged" : "unplugged") << " reported\n";
    });
}

int RunPower(const VerbContext& context)
{
    const std::string& word = context.Arguments()[0];
    if (word != "off" && word != "on") {
        throw UsageError("power takes off or on, not \"" + word + "\"");
    }
    const bool softPowerOff = word == "off";
    Json::Value params(Json::objectValue);
    params["softPowerOff"] = softPowerOff;
    return RunRequest(context, "setSoftPowerOff", params, [&](const Json::Value&) {
        context.out << (softPowerOff ? "soft power-off" : "power on") << "\n";
    });
}

int RunResumeInfo(const VerbContext& context)
{
    return RunRequest(context, "popSuspendedTrackInfo", Json::Value(), [&](const Json::Value& result) {
        context.out << FormatSuspension(result["suspensionData"]);
    });
}

}  // namespace usbctl
