#include "core/Error.h"

#include <gtest/gtest.h>

#include <cerrno>

TEST(ErrorTest, FreshObjectIsSuccess)
{
    CError error;
    EXPECT_EQ(error.m_errorCode, 0);
    EXPECT_EQ(error.GetErrorText(), "Success");
}

TEST(ErrorTest, SetErrorPrefixesTextAndPrintsIt)
{
    CError error;
    testing::internal::CaptureStdout();
    error.SetError("Playlist is empty", -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "E: Playlist is empty(-3)\n");
    EXPECT_EQ(error.m_errorCode, -3);
    EXPECT_EQ(error.GetErrorText(), "E: Playlist is empty");
}

TEST(ErrorTest, CodeZeroTakesErrnoAndAppendsItsText)
{
    CError error;
    testing::internal::CaptureStdout();
    errno = 2;
    error.SetError("open", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "E: open No such file or directory(2)\n");
    EXPECT_EQ(error.m_errorCode, 2);
    EXPECT_EQ(error.GetErrorText(), "E: open No such file or directory");
}

TEST(ErrorTest, CodeZeroWithErrnoZeroStillReadsSuccess)
{
    CError error;
    testing::internal::CaptureStdout();
    errno = 0;
    error.SetError("nothing", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "E: nothing Success(0)\n");
    EXPECT_EQ(error.m_errorCode, 0);
    EXPECT_EQ(error.m_errorText, "E: nothing Success");
    EXPECT_EQ(error.GetErrorText(), "Success");
}

TEST(ErrorTest, SecondCallReplacesTheFirst)
{
    CError error;
    testing::internal::CaptureStdout();
    error.SetError("first", -1);
    error.SetError("second", -2);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(error.m_errorCode, -2);
    EXPECT_EQ(error.GetErrorText(), "E: second");
}

TEST(ErrorTest, VirtualBaseGivesOneStatusPerObject)
{
    struct A : virtual CError {};
    struct B : virtual CError {};
    struct C : A, B {};
    C object;
    testing::internal::CaptureStdout();
    static_cast<A&>(object).SetError("shared", -6);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(static_cast<B&>(object).m_errorCode, -6);
}
