#include "tools/Formatting.h"

#include <gtest/gtest.h>

using namespace usbctl;

TEST(FormattingTest, ClockAsMinutesAndSeconds)
{
    EXPECT_EQ(FormatClock(0), "0:00");
    EXPECT_EQ(FormatClock(5), "0:05");
    EXPECT_EQ(FormatClock(59), "0:59");
    EXPECT_EQ(FormatClock(60), "1:00");
    EXPECT_EQ(FormatClock(195), "3:15");
    EXPECT_EQ(FormatClock(3600), "60:00");
    EXPECT_EQ(FormatClock(4294967295LL), "71582788:15");
}

TEST(FormattingTest, TimeOfDuration)
{
    EXPECT_EQ(FormatTimeOfDuration(42, 195), "0:42 / 3:15");
}

TEST(FormattingTest, ProgressBarFillsInProportion)
{
    EXPECT_EQ(ProgressBar(0, 100, 10), "[----------]");
    EXPECT_EQ(ProgressBar(50, 100, 10), "[#####-----]");
    EXPECT_EQ(ProgressBar(99, 100, 10), "[#########-]");
    EXPECT_EQ(ProgressBar(100, 100, 10), "[##########]");
}

TEST(FormattingTest, ProgressBarEdges)
{
    EXPECT_EQ(ProgressBar(30, 0, 4), "[----]");    // duration not known yet
    EXPECT_EQ(ProgressBar(130, 100, 4), "[####]");  // past the end
    EXPECT_EQ(ProgressBar(1, 1000, 4), "[----]");
}

TEST(FormattingTest, StateNames)
{
    EXPECT_EQ(StateName(-1), "unknown");
    EXPECT_EQ(StateName(0), "stopped");
    EXPECT_EQ(StateName(3), "paused");
    EXPECT_EQ(StateName(4), "playing");
    EXPECT_EQ(StateName(5), "fast-forward");
    EXPECT_EQ(StateName(6), "rewind");
    EXPECT_EQ(StateName(7), "7");
}

TEST(FormattingTest, RepeatModes)
{
    EXPECT_EQ(RepeatModeName(0), "none");
    EXPECT_EQ(RepeatModeName(1), "one");
    EXPECT_EQ(RepeatModeName(2), "all");
    EXPECT_EQ(RepeatModeName(9), "9");
    EXPECT_EQ(ParseRepeatMode("none"), 0);
    EXPECT_EQ(ParseRepeatMode("one"), 1);
    EXPECT_EQ(ParseRepeatMode("all"), 2);
    EXPECT_FALSE(ParseRepeatMode("All").has_value());
}

TEST(FormattingTest, OnOff)
{
    EXPECT_EQ(OnOff(true), "on");
    EXPECT_EQ(OnOff(false), "off");
    EXPECT_EQ(ParseOnOff("on"), true);
    EXPECT_EQ(ParseOnOff("off"), false);
    EXPECT_FALSE(ParseOnOff("yes").has_value());
}

TEST(FormattingTest, Integers)
{
    EXPECT_EQ(ParseInteger("0"), 0);
    EXPECT_EQ(ParseInteger("-12"), -12);
    EXPECT_EQ(ParseInteger("4294967295"), 4294967295LL);
    EXPECT_FALSE(ParseInteger("").has_value());
    EXPECT_FALSE(ParseInteger("12x").has_value());
    EXPECT_FALSE(ParseInteger(" 12").has_value());
    EXPECT_FALSE(ParseInteger("+12").has_value());
    EXPECT_FALSE(ParseInteger("99999999999999999999").has_value());
}

TEST(FormattingTest, ClockPositions)
{
    EXPECT_EQ(ParseClock("90"), 90);
    EXPECT_EQ(ParseClock("1:30"), 90);
    EXPECT_EQ(ParseClock("0:05"), 5);
    EXPECT_FALSE(ParseClock("-5").has_value());
    EXPECT_FALSE(ParseClock("1:5").has_value());
    EXPECT_FALSE(ParseClock("1:60").has_value());
    EXPECT_FALSE(ParseClock("-0:30").has_value());
    EXPECT_FALSE(ParseClock(":30").has_value());
    EXPECT_FALSE(ParseClock("1:30:00").has_value());
}
