#include "tools/Cli.h"

#include "core/Environment.h"
#include "tools/Verbs.h"

#include <json/value.h>

#include <ostream>

namespace usbctl {

namespace {
const std::vector<OptionRule>* OptionsOfVerb(const std::string& name)
{
    const Verb* verb = FindVerb(name);
    return verb != nullptr ? &verb->options : nullptr;
}

void CheckArgumentCount(const Verb& verb, size_t count)
{
    if (count >= verb.minArguments && count <= verb.maxArguments) {
        return;
    }
    const std::string usage = "usage: usb-media-ctl " + verb.name +
                              (verb.arguments.empty() ? "" : " " + verb.arguments);
    throw UsageError((count < verb.minArguments ? "missing arguments; " : "too many arguments; ") + usage);
}

int Dispatch(const Invocation& invocation, std::ostream& out, std::ostream& err, bool outIsTerminal)
{
    if (invocation.verb.empty()) {
        if (!invocation.help) {
            throw UsageError("no verb given");
        }
        out << OverallHelp();
        return kExitSuccess;
    }
    const Verb& verb = *FindVerb(invocation.verb);
    if (invocation.help) {
        out << VerbHelp(verb);
        return kExitSuccess;
    }
    try {
        CheckArgumentCount(verb, invocation.arguments.size());
        VerbContext context{invocation, out, err, outIsTerminal};
        return verb.run(context);
    } catch (const UsageError& error) {
        if (error.Verb().empty()) {
            throw UsageError(error.what(), verb.name);
        }
        throw;
    }
}
}  // namespace

int RunCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   bool outIsTerminal)
{
    try {
        const Invocation invocation = ParseCommandLine(args, RpcPort(), OptionsOfVerb);
        return Dispatch(invocation, out, err, outIsTerminal);
    } catch (const UsageError& error) {
        // The help of the verb that was misused, else the overview.
        const bool ownHelp = !error.Verb().empty() && error.Verb() != "help";
        err << "usb-media-ctl: " << error.what() << "\n(see usb-media-ctl " << (ownHelp ? error.Verb() + " " : "")
            << "--help)\n";
        return kExitUsage;
    } catch (const ConnectionError& error) {
        err << "usb-media-ctl: " << error.what() << "\n";
        return kExitUsage;
    } catch (const Json::Exception& error) {
        err << "usb-media-ctl: unexpected reply from the service: " << error.what() << "\n";
        return kExitFailure;
    }
}

}  // namespace usbctl
