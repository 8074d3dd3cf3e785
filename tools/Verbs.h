#pragma once

#include "tools/Arguments.h"
#include "tools/Connection.h"

#include <json/value.h>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace usbctl {

enum ExitStatus { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2 };

// What a verb works with: the parsed command line and where to write.
struct VerbContext {
    const Invocation& invocation;
    std::ostream& out;
    std::ostream& err;
    bool outIsTerminal = false;

    bool Json() const { return invocation.global.json; }
    int TimeoutMs() const { return invocation.global.timeoutMs; }
    const std::vector<std::string>& Arguments() const { return invocation.arguments; }
    // The positional argument at `index`, or `fallback` when there is none.
    std::string ArgumentOr(size_t index, const std::string& fallback) const;

    // Throws ConnectionError.
    Connection Connect() const;
};

using VerbRunner = int (*)(const VerbContext&);

struct Verb {
    std::string name;
    std::string arguments;  // synopsis after the name, e.g. "[PATH]"
    std::string summary;    // one line for the overview
    std::string methods;    // the JSON-RPC methods it sends
    std::string details;    // further lines for VERB --help
    std::vector<OptionRule> options;
    size_t minArguments = 0;
    size_t maxArguments = 0;
    VerbRunner run = nullptr;
};

const std::vector<Verb>& AllVerbs();
const Verb* FindVerb(const std::string& name);

std::string OverallHelp();
std::string VerbHelp(const Verb& verb);

// One request's reply, after it was printed (--json) and, when it failed,
// reported on standard error.
struct RequestOutcome {
    bool ok = false;
    Json::Value reply;

    const Json::Value& Result() const { return reply["result"]; }
};

// Sends one request on an open connection. `falseMessage`, when not empty,
// replaces the generic text for a bare false result.
RequestOutcome Request(Connection& connection, const VerbContext& context, const std::string& method,
                       const Json::Value& params, const std::string& falseMessage = "");

// Sends one request and reports the reply: with --json the reply's text,
// otherwise `describe(result)` on success. A failed reply (see CheckReply)
// is reported on standard error and gives 1.
using ResultPrinter = std::function<void(const Json::Value& result)>;
int RunRequest(const VerbContext& context, const std::string& method, const Json::Value& params,
               const ResultPrinter& describe, const std::string& falseMessage = "");

// Writes "usb-media-ctl: <message>" to standard error.
void ReportFailure(const VerbContext& context, const std::string& message);

// Reads a number argument; throws UsageError naming `what`.
long long NumberArgument(const std::string& text, const std::string& what, long long min, long long max);
// Reads "on"/"off"; throws UsageError.
bool OnOffArgument(const std::string& text, const std::string& what);

// The verbs.
int RunCall(const VerbContext& context);
int RunStatus(const VerbContext& context);
int RunList(const VerbContext& context);
int RunIndex(const VerbContext& context);
int RunCrc(const VerbContext& context);
int RunPlay(const VerbContext& context);
int RunPlayAll(const VerbContext& context);
int RunPlayIndex(const VerbContext& context);
int RunPause(const VerbContext& context);
int RunResume(const VerbContext& context);
int RunStop(const VerbContext& context);
int RunNext(const VerbContext& context);
int RunPrevious(const VerbContext& context);
int RunRestart(const VerbContext& context);
int RunSeek(const VerbContext& context);
int RunFastForward(const VerbContext& context);
int RunRewind(const VerbContext& context);
int RunRepeat(const VerbContext& context);
int RunShuffle(const VerbContext& context);
int RunAlbumArt(const VerbContext& context);
int RunUsb(const VerbContext& context);
int RunMountEvent(const VerbContext& context);
int RunPower(const VerbContext& context);
int RunResumeInfo(const VerbContext& context);
int RunLibrary(const VerbContext& context);
int RunArtists(const VerbContext& context);
int RunGenres(const VerbContext& context);
int RunAlbums(const VerbContext& context);
int RunTracks(const VerbContext& context);
int RunSearch(const VerbContext& context);
int RunPlayTracks(const VerbContext& context);
int RunWatch(const VerbContext& context);
int RunHelp(const VerbContext& context);

}  // namespace usbctl
