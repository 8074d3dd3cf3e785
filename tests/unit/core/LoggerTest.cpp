#include "core/Logger.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <regex>

using testing_support::ReadFile;
using testing_support::TempDir;

namespace {
constexpr const char* kLogSource = "LoggerTest";

// Runs `body` with the log going to a file and returns what was written.
template <class Body>
std::string Capture(int level, Body body)
{
    TempDir dir;
    const std::string path = dir / "log.txt";
    CLogger& logger = CLogger::GetInstance();
    EXPECT_TRUE(logger.OpenFile(path.c_str()));
    logger.SetLevel(level);
    body(logger);
    logger.CloseFile();
    logger.SetLevel(LOG_WARN);
    return ReadFile(path);
}
}  // namespace

TEST(LoggerTest, RecordIsHeaderLineThenTabIndentedMessage)
{
    const std::string out = Capture(LOG_WARN, [](CLogger& logger) {
        logger.Log("main", 123, LOG_WARN, "Error signal SIGTERM will not be handled\n");
    });
    const std::regex format(
        R"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\]\[WARN \]\[main:123\]\n\tError signal SIGTERM will not be handled\n)");
    EXPECT_TRUE(std::regex_match(out, format)) << out;
}

TEST(LoggerTest, MacroPassesSourceNameAndLine)
{
    const std::string out = Capture(LOG_ALL, [](CLogger&) { LOG_AT(42, LOG_INFO, "x=%d\n", 7); });
    EXPECT_NE(out.find("[INFO ][LoggerTest:42]\n\tx=7\n"), std::string::npos) << out;
}

TEST(LoggerTest, RecordsBelowLevelAreDropped)
{
    const std::string out = Capture(LOG_DEBUG, [](CLogger& logger) {
        logger.Log("f", 1, LOG_INFO, "info\n");    // 1 < 2: dropped
        logger.Log("f", 2, LOG_DEBUG, "debug\n");  // shown
        logger.Log("f", 3, LOG_TRACE, "trace\n");
    });
    EXPECT_EQ(out.find("info"), std::string::npos);
    EXPECT_EQ(out.find("trace"), std::string::npos);
    EXPECT_NE(out.find("[DEBUG][f:2]\n\tdebug\n"), std::string::npos);
}

TEST(LoggerTest, LevelOffWritesNothing)
{
    const std::string out = Capture(LOG_OFF, [](CLogger& logger) {
        for (int level = LOG_ALL; level <= LOG_FATAL; ++level) {
            logger.Log("f", 1, level, "message\n");
        }
    });
    EXPECT_EQ(out, "");
}

TEST(LoggerTest, LevelAllWritesEverythingAndTagsTraceForMinusOneAndZero)
{
    const std::string out = Capture(LOG_ALL, [](CLogger& logger) {
        logger.Log("f", 1, LOG_ALL, "a\n");
        logger.Log("f", 2, LOG_TRACE, "b\n");
        logger.Log("f", 3, LOG_FATAL, "c\n");
    });
    EXPECT_NE(out.find("[TRACE][f:1]\n\ta\n"), std::string::npos);
    EXPECT_NE(out.find("[TRACE][f:2]\n\tb\n"), std::string::npos);
    EXPECT_NE(out.find("[FATAL][f:3]\n\tc\n"), std::string::npos);
}

TEST(LoggerTest, SetLevelClamps)
{
    CLogger& logger = CLogger::GetInstance();
    logger.SetLevel(42);
    EXPECT_EQ(logger.GetLevel(), 6);
    logger.SetLevel(-9);
    EXPECT_EQ(logger.GetLevel(), -1);
    logger.SetLevel(LOG_WARN);
}

TEST(LoggerTest, LevelNames)
{
    EXPECT_STREQ(CLogger::LevelName(-1), "[TRACE]");
    EXPECT_STREQ(CLogger::LevelName(0), "[TRACE]");
    EXPECT_STREQ(CLogger::LevelName(1), "[INFO ]");
    EXPECT_STREQ(CLogger::LevelName(2), "[DEBUG]");
    EXPECT_STREQ(CLogger::LevelName(3), "[WARN ]");
    EXPECT_STREQ(CLogger::LevelName(4), "[ERROR]");
    EXPECT_STREQ(CLogger::LevelName(5), "[FATAL]");
    EXPECT_STREQ(CLogger::LevelName(6), "[INFO ]");
    EXPECT_STREQ(CLogger::LevelName(7), "[INFO ]");
    EXPECT_STREQ(CLogger::LevelName(-2), "[INFO ]");
}

TEST(LoggerTest, CloseFileWithoutOpenFileReturnsFalse)
{
    EXPECT_FALSE(CLogger::GetInstance().CloseFile());
}

TEST(LoggerTest, SecondOpenFileFailsAndKeepsTheFirst)
{
    TempDir dir;
    const std::string first = dir / "first.txt";
    const std::string second = dir / "second.txt";
    CLogger& logger = CLogger::GetInstance();
    ASSERT_TRUE(logger.OpenFile(first.c_str()));
    EXPECT_FALSE(logger.OpenFile(second.c_str()));
    EXPECT_FALSE(logger.OpenFile(nullptr));
    logger.Log("f", 1, LOG_FATAL, "kept\n");
    EXPECT_TRUE(logger.CloseFile());
    EXPECT_NE(ReadFile(first).find("kept"), std::string::npos);
    EXPECT_EQ(ReadFile(second), "");
}

TEST(LoggerTest, OpenFileOnUnwritablePathFails)
{
    EXPECT_FALSE(CLogger::GetInstance().OpenFile("/nonexistent-dir/log.txt"));
    EXPECT_FALSE(CLogger::GetInstance().CloseFile());
}

TEST(LoggerTest, ParseLogLevelByFirstLetterInEitherCase)
{
    EXPECT_EQ(ParseLogLevel('a'), -1);
    EXPECT_EQ(ParseLogLevel('t'), 0);
    EXPECT_EQ(ParseLogLevel('i'), 1);
    EXPECT_EQ(ParseLogLevel('d'), 2);
    EXPECT_EQ(ParseLogLevel('w'), 3);
    EXPECT_EQ(ParseLogLevel('e'), 4);
    EXPECT_EQ(ParseLogLevel('f'), 5);
    EXPECT_EQ(ParseLogLevel('D'), 2);
    EXPECT_EQ(ParseLogLevel('W'), 3);
    for (char c : std::string("bcghjklmnopqrsuv")) {
        EXPECT_EQ(ParseLogLevel(c), 6) << c;
    }
    EXPECT_EQ(ParseLogLevel('x'), 6);
    EXPECT_EQ(ParseLogLevel('z'), 6);
    EXPECT_EQ(ParseLogLevel('-'), 6);
    EXPECT_EQ(ParseLogLevel('\0'), 6);
    EXPECT_EQ(ParseLogLevel(static_cast<char>(0xE9)), 6);
}
