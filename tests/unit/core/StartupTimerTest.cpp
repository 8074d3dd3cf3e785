#include "core/StartupTimer.h"

#include <gtest/gtest.h>

namespace {
timeval Tv(long sec, long usec)
{
    timeval value{};
    value.tv_sec = sec;
    value.tv_usec = usec;
    return value;
}
}  // namespace

TEST(StartupTimerTest, PositiveDifferenceWithBorrow)
{
    const timeval start = Tv(10, 900000);
    const timeval end = Tv(12, 100000);
    timeval result{};
    EXPECT_EQ(TimevalSubtract(&result, &end, &start), 0);
    EXPECT_EQ(result.tv_sec, 1);
    EXPECT_EQ(result.tv_usec, 200000);
}

TEST(StartupTimerTest, NegativeDifferenceTruncatesTowardZero)
{
    const timeval start = Tv(12, 100000);
    const timeval end = Tv(10, 900000);
    timeval result{};
    EXPECT_EQ(TimevalSubtract(&result, &end, &start), 1);
    EXPECT_EQ(result.tv_sec, -1);
    EXPECT_EQ(result.tv_usec, -200000);
}

TEST(StartupTimerTest, ZeroDifference)
{
    const timeval same = Tv(5, 5);
    timeval result = Tv(9, 9);
    EXPECT_EQ(TimevalSubtract(&result, &same, &same), 0);
    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_usec, 0);
}

TEST(StartupTimerTest, MicrosecondCarry)
{
    const timeval start = Tv(0, 999999);
    const timeval end = Tv(1, 0);
    timeval result{};
    EXPECT_EQ(TimevalSubtract(&result, &end, &start), 0);
    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_usec, 1);
}

TEST(StartupTimerTest, CountIsSigned32Bit)
{
    // 3000 s is 3e9 microseconds, past the signed 32-bit range: it wraps.
    const timeval start = Tv(0, 0);
    const timeval end = Tv(3000, 0);
    timeval result{};
    const int32_t wrapped = static_cast<int32_t>(3000000000LL);
    EXPECT_EQ(TimevalSubtract(&result, &end, &start), 1);
    EXPECT_EQ(result.tv_sec, wrapped / 1000000);
    EXPECT_EQ(result.tv_usec, wrapped % 1000000);
}

TEST(StartupTimerTest, TimerDefaults)
{
    CStartupTimer timer;
    EXPECT_EQ(timer.name, "USB Service");
}

TEST(StartupTimerTest, PrintTimevalFormat)
{
    setenv("TZ", "UTC", 1);
    tzset();
    const timeval value = Tv(86400 + 3661, 42);
    testing::internal::CaptureStdout();
    PrintTimeval(&value);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "90061.000042 = 01-02-1970  01:01:01.000042\n");
}

// Past 2038: time_t is 64 bits on every build (also armhf), and so is what
// gets printed.
TEST(StartupTimerTest, PrintTimevalAfter2038)
{
    static_assert(sizeof(time_t) == 8, "64-bit time_t on every target");
    setenv("TZ", "UTC", 1);
    tzset();
    timeval value{};
    value.tv_sec = static_cast<time_t>(4102444800LL);  // 2100-01-01
    value.tv_usec = 7;
    testing::internal::CaptureStdout();
    PrintTimeval(&value);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "4102444800.000007 = 01-01-2100  00:00:00.000007\n");
}
