#include "tools/Arguments.h"

#include "tools/Formatting.h"

#include <cctype>

namespace usbctl {

namespace {
constexpr int kMaxPort = 65535;
constexpr long long kMaxTimeoutSeconds = 24 * 3600;

// "-5" is a value (a negative number), not an option.
bool LooksLikeOption(const std::string& arg)
{
    if (arg.size() < 2 || arg[0] != '-') {
        return false;
    }
    return !std::isdigit(static_cast<unsigned char>(arg[1]));
}

const OptionRule* FindRule(const std::vector<OptionRule>& rules, const std::string& name)
{
    for (const OptionRule& rule : rules) {
        if (rule.name == name) {
            return &rule;
        }
    }
    return nullptr;
}

int ParsePort(const std::string& text)
{
    const auto port = ParseInteger(text);
    if (!port || *port < 1 || *port > kMaxPort) {
        throw UsageError("--port needs a number from 1 to 65535, not \"" + text + "\"");
    }
    return static_cast<int>(*port);
}

int ParseTimeoutMs(const std::string& text)
{
    const auto seconds = ParseInteger(text);
    if (!seconds || *seconds < 1 || *seconds > kMaxTimeoutSeconds) {
        throw UsageError("--timeout needs a whole number of seconds (1 or more), not \"" + text + "\"");
    }
    return static_cast<int>(*seconds * 1000);
}

void ApplyGlobal(GlobalOptions& global, bool& help, const std::string& name, const std::string& value)
{
    if (name == "--host") {
        if (value.empty()) {
            throw UsageError("--host needs a host name or address");
        }
        global.host = value;
    } else if (name == "--port") {
        global.port = ParsePort(value);
    } else if (name == "--json") {
        global.json = true;
    } else if (name == "--timeout") {
        global.timeoutMs = ParseTimeoutMs(value);
    } else {
        help = true;  // --help or -h
    }
}

class Parser {
public:
    Parser(const std::vector<std::string>& args, const VerbOptionsLookup& verbOptions)
        : m_args(args), m_verbOptions(verbOptions)
    {
    }

    Invocation Run(int defaultPort)
    {
        m_result.global.port = defaultPort;
        bool optionsEnded = false;
        try {
            for (m_next = 0; m_next < m_args.size();) {
                const std::string arg = m_args[m_next++];
                if (!optionsEnded && arg == "--") {
                    optionsEnded = true;
                } else if (!optionsEnded && LooksLikeOption(arg)) {
                    TakeOption(arg);
                } else {
                    TakeWord(arg);
                }
            }
        } catch (const UsageError& error) {
            if (error.Verb().empty() && !m_result.verb.empty()) {
                throw UsageError(error.what(), m_result.verb);
            }
            throw;
        }
        return m_result;
    }

private:
    void TakeWord(const std::string& word)
    {
        if (!m_result.verb.empty()) {
            m_result.arguments.push_back(word);
            return;
        }
        m_specs = m_verbOptions(word);
        if (m_specs == nullptr) {
            throw UsageError("unknown verb \"" + word + "\"");
        }
        m_result.verb = word;
    }

    void TakeOption(const std::string& arg)
    {
        const size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        const OptionRule* global = FindRule(GlobalOptionRules(), name == "-h" ? "--help" : name);
        const OptionRule* local = m_specs != nullptr ? FindRule(*m_specs, name) : nullptr;
        const OptionRule* rule = global != nullptr ? global : local;
        if (rule == nullptr) {
            const std::string where = m_result.verb.empty() ? "" : " for \"" + m_result.verb + "\"";
            throw UsageError("unknown option " + name + where);
        }
        const std::string value = ValueOf(*rule, arg, equals);
        if (global != nullptr) {
            ApplyGlobal(m_result.global, m_result.help, rule->name, value);
        } else {
            m_result.options[name] = value;
        }
    }

    std::string ValueOf(const OptionRule& rule, const std::string& arg, size_t equals)
    {
        if (!rule.takesValue) {
            if (equals != std::string::npos) {
                throw UsageError(rule.name + " takes no value");
            }
            return "";
        }
        if (equals != std::string::npos) {
            return arg.substr(equals + 1);
        }
        if (m_next >= m_args.size()) {
            throw UsageError(rule.name + " needs a value (" + rule.valueName + ")");
        }
        return m_args[m_next++];
    }

    const std::vector<std::string>& m_args;
    const VerbOptionsLookup& m_verbOptions;
    const std::vector<OptionRule>* m_specs = nullptr;
    size_t m_next = 0;
    Invocation m_result;
};
}  // namespace

std::optional<std::string> Invocation::Option(const std::string& option) const
{
    const auto found = options.find(option);
    if (found == options.end()) {
        return std::nullopt;
    }
    return found->second;
}

const std::vector<OptionRule>& GlobalOptionRules()
{
    static const std::vector<OptionRule> rules{
        {"--host", true, "HOST", "address of the service (default 127.0.0.1)"},
        {"--port", true, "PORT", "port of the service (default $USBMEDIA_PORT, else 8885)"},
        {"--json", false, "", "print what the service sends as compact JSON lines"},
        {"--timeout", true, "SECONDS", "how long to wait for a reply (default 30)"},
        {"--help", false, "", "this help; VERB --help for one verb (also -h)"},
    };
    return rules;
}

Invocation ParseCommandLine(const std::vector<std::string>& args, int defaultPort,
                            const VerbOptionsLookup& verbOptions)
{
    return Parser(args, verbOptions).Run(defaultPort);
}

}  // namespace usbctl
