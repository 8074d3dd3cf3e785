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

TEST(CliUsageTest, TagLibraryHelpNamesTheSelectors)
{
    const std::string albums = RunCli({"albums", "--help"}).out;
    for (const char* option : {"--artist", "--genre"}) {
        EXPECT_NE(albums.find(option), std::string::npos) << option;
    }
    const std::string tracks = RunCli({"tracks", "--help"}).out;
    for (const char* option : {"--album", "--artist", "--genre"}) {
        EXPECT_NE(tracks.find(option), std::string::npos) << option;
    }
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
        {"library", "now"},
        {"artists", "0", "20", "more"},
        {"artists", "--artist", "1"},
        {"albums", "--album", "1"},
        {"albums", "--artist", "1", "--genre", "1"},
        {"tracks", "--album", "x"},
        {"search"},
        {"search", "a", "b"},
        {"play-album"},
        {"play-artist", "1", "2", "3"},
        {"play-genre", "-1"},
        {"usb", "usb1", "plugged", "--fs-uuid"},
        {"index", "--fs-uuid", "x"},
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

TEST(CliUsageTest, UnknownVerbGivesTheHelpHintOnce)
{
    const Outcome outcome = RunCli({"dance"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "usb-media-ctl: unknown verb \"dance\"\n(see usb-media-ctl --help)\n");
}

TEST(CliUsageTest, VerbErrorsPointToTheVerbsOwnHelp)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"seek", "soon"}, "seek"},
        {{"ls", "--page", "0"}, "ls"},
        {{"ls", "--bogus"}, "ls"},
        {{"--bogus", "ls"}, ""},
        {{"usb", "usb3", "plugged"}, "usb"},
        {{"play"}, "play"},
        {{"status", "extra"}, "status"},
        {{"mount-event", "/mnt/usb-stick3", "mounted"}, "mount-event"},
        {{"mount-event", "/mnt/usb-stick1", "inserted"}, "mount-event"},
        {{"help", "dance"}, ""},
        {{}, ""},
    };
    for (const auto& entry : cases) {
        const Outcome outcome = RunCli(entry.first);
        const std::string hint = "\n(see usb-media-ctl " + (entry.second.empty() ? "" : entry.second + " ") + "--help)\n";
        EXPECT_EQ(outcome.status, 2) << outcome.err;
        ASSERT_GE(outcome.err.size(), hint.size()) << outcome.err;
        EXPECT_EQ(outcome.err.substr(outcome.err.size() - hint.size()), hint) << outcome.err;
        EXPECT_EQ(outcome.err.find("(see"), outcome.err.rfind("(see")) << outcome.err;
    }
}

TEST(CliUsageTest, MountEventWithoutUdevEnvironmentIsAUsageError)
{
    unsetenv("ACTION");
    unsetenv("USBMEDIA_MOUNT_POINT");
    EXPECT_EQ(RunCli({"mount-event"}).status, 2);
    EXPECT_EQ(RunCli({"mount-event", "/mnt/usb-stick1"}).status, 2);
    setenv("ACTION", "change", 1);
    const Outcome outcome = RunCli({"mount-event", "/mnt/usb-stick1"});
    unsetenv("ACTION");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find("ACTION is \"change\""), std::string::npos) << outcome.err;
}

TEST(CliUsageTest, PlayAllHelpSaysWhatItPlays)
{
    const std::string help = RunCli({"play-all", "--help"}).out;
    EXPECT_NE(help.find("Play the stick from the first folder of its index."), std::string::npos) << help;
    EXPECT_NE(help.find("first entry of its storage index"), std::string::npos) << help;
    EXPECT_EQ(help.find("every song"), std::string::npos) << help;
}
