// The client's command line as a whole, without a service: help, usage
// errors and their exit statuses.
#include "tools/Cli.h"
#include "tools/Verbs.h"

#include <gtest/gtest.h>

#include <sstream>

using usbctl::RunCommandLine;

namespace {
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

Outcome RunCli(const std::vector<std::string>& args)
{
    std::ostringstream out;
    std::ostringstream err;
    Outcome outcome;
    outcome.status = RunCommandLine(args, out, err, false);
    outcome.out = out.str();
    outcome.err = err.str();
    return outcome;
}
}  // namespace

TEST(CliUsageTest, OverallHelpListsEveryVerb)
{
    const Outcome outcome = RunCli({"--help"});
    EXPECT_EQ(outcome.status, 0);
    for (const usbctl::Verb& verb : usbctl::AllVerbs()) {
        EXPECT_NE(outcome.out.find("  " + verb.name + " "), std::string::npos) << verb.name;
    }
    EXPECT_NE(outcome.out.find("USBMEDIA_ROOT"), std::string::npos);
    EXPECT_NE(outcome.out.find("Exit status"), std::string::npos);
}

TEST(CliUsageTest, EveryVerbHasItsOwnHelp)
{
    for (const usbctl::Verb& verb : usbctl::AllVerbs()) {
        const Outcome outcome = RunCli({verb.name, "--help"});
        EXPECT_EQ(outcome.status, 0) << verb.name;
        EXPECT_EQ(outcome.out.find("usage: usb-media-ctl [OPTIONS] " + verb.name), 0u) << outcome.out;
        EXPECT_NE(outcome.out.find("Sends: "), std::string::npos);
    }
}

TEST(CliUsageTest, HelpVerb)
{
    EXPECT_EQ(RunCli({"help"}).out, RunCli({"--help"}).out);
    EXPECT_EQ(RunCli({"help", "ls"}).out, RunCli({"ls", "--help"}).out);
    EXPECT_EQ(RunCli({"help", "dance"}).status, 2);
}

TEST(CliUsageTest, ListHelpNamesItsOptions)
{
    const std::string help = RunCli({"ls", "--help"}).out;
    for (const char* option : {"--group", "--page", "--page-size", "--max-depth"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}

TEST(CliUsageTest, UsageErrorsGiveTwo)
{
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"dance"},
        {"status", "extra"},
        {"play"},
        {"seek", "soon"},
        {"seek", "1:75"},
        {"ff", "maybe"},
        {"rew"},
        {"repeat", "twice"},
        {"shuffle", "yes"},
        {"usb", "usb3", "plugged"},
        {"usb", "usb1", "inserted"},
        {"power", "down"},
        {"play-index", "x"},
        {"play-index", "4294967296"},
        {"ls", "--page", "0"},
        {"ls", "--page-size", "-1"},
        {"ls", "--group", "x"},
        {"ls", "/mnt/usb-stick1", "--group", "5"},
        {"art", "--wait", "0"},
        {"call"},
        {"call", "ping", "{not json"},
        {"--port", "99999", "status"},
    };
    for (const auto& args : wrong) {
        const Outcome outcome = RunCli(args);
        std::string joined;
        for (const auto& arg : args) {
            joined += arg + " ";
        }
        EXPECT_EQ(outcome.status, 2) << joined;
        EXPECT_EQ(outcome.err.find("usb-media-ctl: "), 0u) << joined << ": " << outcome.err;
        EXPECT_TRUE(outcome.out.empty()) << joined;
    }
}

TEST(CliUsageTest, PlayOfAMissingPathIsAUsageError)
{
    const Outcome outcome = RunCli({"play", "/nonexistent/usb-media-ctl-test/song.mp3"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find("No such file or directory"), std::string::npos) << outcome.err;
}
