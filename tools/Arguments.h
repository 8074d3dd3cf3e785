#pragma once

#include "core/Environment.h"

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace usbctl {

// A command line that cannot be carried out as written.
// `verb`, when known, is the verb whose help explains the right usage.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message, std::string verb = "")
        : std::runtime_error(message), m_verb(std::move(verb))
    {
    }
    const std::string& Verb() const { return m_verb; }

private:
    std::string m_verb;
};

// An option a verb accepts, such as "--page" with a value or "--max-depth" alone.
struct OptionRule {
    std::string name;
    bool takesValue = false;
    std::string valueName;  // shown in help, e.g. "N"
    std::string help;
};

struct GlobalOptions {
    std::string host = kDefaultRpcAddress;
    int port = kDefaultRpcPort;
    bool json = false;
    int timeoutMs = 30000;
};

// The command line taken apart: global options, the verb, its options and
// its positional arguments. Options may stand before or after the verb.
struct Invocation {
    GlobalOptions global;
    bool help = false;
    std::string verb;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> options;  // "--page" -> "2"; "" for a flag

    bool Has(const std::string& option) const { return options.count(option) != 0; }
    std::optional<std::string> Option(const std::string& option) const;
};

// The options of a verb; null when there is no such verb.
using VerbOptionsLookup = std::function<const std::vector<OptionRule>*(const std::string& verb)>;

// Parses argv (without the program name). `defaultPort` is the port used
// when --port is absent. Throws UsageError.
Invocation ParseCommandLine(const std::vector<std::string>& args, int defaultPort,
                            const VerbOptionsLookup& verbOptions);

// The global options for help texts.
const std::vector<OptionRule>& GlobalOptionRules();

}  // namespace usbctl
