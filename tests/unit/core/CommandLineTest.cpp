#include "core/CommandLine.h"

#include "core/Logger.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
struct SResult {
    std::string address;
    int level;
};

SResult Apply(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "usb-media-service");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    CLogger::GetInstance().SetLevel(LOG_WARN);
    std::string address = "127.0.0.1";
    ApplyCommandLine(static_cast<int>(argv.size()), argv.data(), address);
    SResult result{address, CLogger::GetInstance().GetLevel()};
    CLogger::GetInstance().SetLevel(LOG_WARN);
    return result;
}
}  // namespace

TEST(CommandLineTest, NoArguments)
{
    const SResult r = Apply({});
    EXPECT_EQ(r.address, "127.0.0.1");
    EXPECT_EQ(r.level, 3);
}

TEST(CommandLineTest, AddressAsLastArgumentIsIgnored)
{
    EXPECT_EQ(Apply({"-a"}).address, "127.0.0.1");
}

TEST(CommandLineTest, AddressAndDebugLevel)
{
    const SResult r = Apply({"-a", "10.0.0.5", "-l", "d"});
    EXPECT_EQ(r.address, "10.0.0.5");
    EXPECT_EQ(r.level, 2);
}

TEST(CommandLineTest, LevelFollowedByDisableLogging)
{
    EXPECT_EQ(Apply({"-l", "--disable-logging"}).level, 6);
}

TEST(CommandLineTest, AddressTakesTheNextOptionAsValue)
{
    const SResult r = Apply({"-a", "-l", "x"});
    EXPECT_EQ(r.address, "-l");
    EXPECT_EQ(r.level, 6);
}

TEST(CommandLineTest, LevelWithoutValueChangesNothing)
{
    EXPECT_EQ(Apply({"-lfoo"}).level, 3);
}

TEST(CommandLineTest, LastLevelOptionWins)
{
    EXPECT_EQ(Apply({"--disable-logging", "-l", "t"}).level, 0);
    EXPECT_EQ(Apply({"-l", "t", "--disable-logging"}).level, 6);
}

TEST(CommandLineTest, OptionsMatchByPrefix)
{
    EXPECT_EQ(Apply({"-address", "1.2.3.4"}).address, "1.2.3.4");
    EXPECT_EQ(Apply({"-log", "error"}).level, 4);
    EXPECT_EQ(Apply({"--disable-logging-now"}).level, 6);
    EXPECT_EQ(Apply({"-l", "All"}).level, -1);
    EXPECT_EQ(Apply({"-l", "FATAL"}).level, 5);
    EXPECT_EQ(Apply({"-l", "info"}).level, 1);
}

TEST(CommandLineTest, StdoutClosesAnOpenLogFile)
{
    char path[] = "/tmp/usbmedia-cmdline-XXXXXX";
    close(mkstemp(path));
    ASSERT_TRUE(CLogger::GetInstance().OpenFile(path));
    Apply({"--stdoutx"});
    EXPECT_FALSE(CLogger::GetInstance().CloseFile());
    unlink(path);
}

TEST(CommandLineTest, UnknownArgumentsAreIgnored)
{
    const SResult r = Apply({"--verbose", "x", "-z"});
    EXPECT_EQ(r.address, "127.0.0.1");
    EXPECT_EQ(r.level, 3);
}

TEST(CommandLineTest, EmptyAddressValueIsTaken)
{
    EXPECT_EQ(Apply({"-a", ""}).address, "");
}
