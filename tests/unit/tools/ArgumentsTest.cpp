#include "tools/Arguments.h"

#include <gtest/gtest.h>

using usbctl::Invocation;
using usbctl::OptionRule;
using usbctl::ParseCommandLine;
using usbctl::UsageError;

namespace {
const std::vector<OptionRule> kListOptions{{"--page", true, "N", ""}, {"--max-depth", false, "", ""}};
const std::vector<OptionRule> kNoOptions;

const std::vector<OptionRule>* Lookup(const std::string& verb)
{
    if (verb == "ls") {
        return &kListOptions;
    }
    if (verb == "seek" || verb == "status" || verb == "call") {
        return &kNoOptions;
    }
    return nullptr;
}

Invocation Parse(const std::vector<std::string>& args, int defaultPort = 8885)
{
    return ParseCommandLine(args, defaultPort, Lookup);
}
}  // namespace

TEST(ArgumentsTest, DefaultsWithoutOptions)
{
    const Invocation invocation = Parse({"status"});
    EXPECT_EQ(invocation.verb, "status");
    EXPECT_EQ(invocation.global.host, "127.0.0.1");
    EXPECT_EQ(invocation.global.port, 8885);
    EXPECT_FALSE(invocation.global.json);
    EXPECT_EQ(invocation.global.timeoutMs, 30000);
    EXPECT_FALSE(invocation.help);
    EXPECT_TRUE(invocation.arguments.empty());
}

TEST(ArgumentsTest, DefaultPortComesFromTheCaller)
{
    EXPECT_EQ(Parse({"status"}, 19000).global.port, 19000);
}

TEST(ArgumentsTest, GlobalOptionsBeforeAndAfterTheVerb)
{
    const Invocation invocation = Parse({"--host", "localhost", "status", "--port=9000", "--json"});
    EXPECT_EQ(invocation.global.host, "localhost");
    EXPECT_EQ(invocation.global.port, 9000);
    EXPECT_TRUE(invocation.global.json);
}

TEST(ArgumentsTest, VerbOptionsWithAndWithoutValues)
{
    const Invocation invocation = Parse({"ls", "/mnt/usb-stick1", "--page", "3", "--max-depth"});
    EXPECT_EQ(invocation.arguments, std::vector<std::string>{"/mnt/usb-stick1"});
    EXPECT_EQ(invocation.Option("--page"), std::optional<std::string>("3"));
    EXPECT_TRUE(invocation.Has("--max-depth"));
    EXPECT_FALSE(invocation.Option("--page-size").has_value());
}

TEST(ArgumentsTest, OptionValueAfterEqualsSign)
{
    EXPECT_EQ(Parse({"ls", "--page=2"}).Option("--page"), std::optional<std::string>("2"));
}

TEST(ArgumentsTest, VerbOptionBeforeTheVerbIsUnknown)
{
    EXPECT_THROW(Parse({"--page", "2", "ls"}), UsageError);
}

TEST(ArgumentsTest, UnknownVerbAndOption)
{
    EXPECT_THROW(Parse({"dance"}), UsageError);
    EXPECT_THROW(Parse({"status", "--loud"}), UsageError);
    EXPECT_THROW(Parse({"--loud"}), UsageError);
}

TEST(ArgumentsTest, MissingOptionValue)
{
    EXPECT_THROW(Parse({"ls", "--page"}), UsageError);
    EXPECT_THROW(Parse({"status", "--port"}), UsageError);
}

TEST(ArgumentsTest, FlagWithValueIsRejected)
{
    EXPECT_THROW(Parse({"ls", "--max-depth=1"}), UsageError);
}

TEST(ArgumentsTest, PortMustBeInRange)
{
    EXPECT_THROW(Parse({"status", "--port", "0"}), UsageError);
    EXPECT_THROW(Parse({"status", "--port", "65536"}), UsageError);
    EXPECT_THROW(Parse({"status", "--port", "80a"}), UsageError);
    EXPECT_EQ(Parse({"status", "--port", "65535"}).global.port, 65535);
}

TEST(ArgumentsTest, TimeoutInSeconds)
{
    EXPECT_EQ(Parse({"status", "--timeout", "3"}).global.timeoutMs, 3000);
    EXPECT_THROW(Parse({"status", "--timeout", "0"}), UsageError);
    EXPECT_THROW(Parse({"status", "--timeout", "x"}), UsageError);
}

TEST(ArgumentsTest, EmptyHostIsRejected)
{
    EXPECT_THROW(Parse({"status", "--host="}), UsageError);
}

TEST(ArgumentsTest, HelpWithAndWithoutVerb)
{
    EXPECT_TRUE(Parse({"--help"}).help);
    EXPECT_TRUE(Parse({"-h"}).help);
    const Invocation invocation = Parse({"ls", "--help"});
    EXPECT_TRUE(invocation.help);
    EXPECT_EQ(invocation.verb, "ls");
}

TEST(ArgumentsTest, NegativeNumberIsAnArgument)
{
    EXPECT_EQ(Parse({"seek", "-5"}).arguments, std::vector<std::string>{"-5"});
}

TEST(ArgumentsTest, DoubleDashEndsOptions)
{
    const Invocation invocation = Parse({"ls", "--", "--odd-name"});
    EXPECT_EQ(invocation.arguments, std::vector<std::string>{"--odd-name"});
}

TEST(ArgumentsTest, JsonParamsStayOneArgument)
{
    const Invocation invocation = Parse({"call", "setRepeatModeUSB", R"({"mode":2})"});
    EXPECT_EQ(invocation.arguments, (std::vector<std::string>{"setRepeatModeUSB", R"({"mode":2})"}));
}

TEST(ArgumentsTest, NoVerbIsAllowedByTheParser)
{
    EXPECT_TRUE(Parse({}).verb.empty());
}
