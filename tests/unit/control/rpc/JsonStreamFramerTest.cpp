#include "control/rpc/JsonStreamFramer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Json::Rpc::JsonStreamFramer;

namespace {
std::vector<std::string> Drain(JsonStreamFramer& framer)
{
    std::vector<std::string> values;
    std::string value;
    while (framer.Next(value)) {
        values.push_back(value);
    }
    return values;
}

std::vector<std::string> FrameAll(const std::string& stream)
{
    JsonStreamFramer framer(1 << 20);
    framer.Append(stream.data(), stream.size());
    return Drain(framer);
}
}  // namespace

TEST(JsonStreamFramerTest, SeveralValuesInOneRead)
{
    const auto values = FrameAll(R"({"a":1}{"b":2} {"c":3}
[1,2]"text"  )");
    ASSERT_EQ(values.size(), 5u);
    EXPECT_EQ(values[0], R"({"a":1})");
    EXPECT_EQ(values[1], R"({"b":2})");
    EXPECT_EQ(values[2], R"({"c":3})");
    EXPECT_EQ(values[3], "[1,2]");
    EXPECT_EQ(values[4], "\"text\"");
}

TEST(JsonStreamFramerTest, ValueSplitOverManyReadsByteByByte)
{
    const std::string request = R"({"jsonrpc":"2.0","method":"ping","id":7})";
    JsonStreamFramer framer(1 << 20);
    std::string value;
    for (size_t i = 0; i + 1 < request.size(); ++i) {
        framer.Append(&request[i], 1);
        EXPECT_FALSE(framer.Next(value)) << i;
    }
    framer.Append(&request.back(), 1);
    ASSERT_TRUE(framer.Next(value));
    EXPECT_EQ(value, request);
    EXPECT_FALSE(framer.Next(value));
}

TEST(JsonStreamFramerTest, BracesAndQuotesInsideStrings)
{
    const std::string tricky = R"({"s":"} { ] [ \" \\","t":"\\"})";
    const auto values = FrameAll(tricky + tricky);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0], tricky);
    EXPECT_EQ(values[1], tricky);
}

TEST(JsonStreamFramerTest, EscapeSplitAcrossReads)
{
    JsonStreamFramer framer(1 << 20);
    std::string value;
    const std::string first = R"({"s":"a\)";
    const std::string second = R"("}"})";
    framer.Append(first.data(), first.size());
    EXPECT_FALSE(framer.Next(value));
    framer.Append(second.data(), second.size());
    ASSERT_TRUE(framer.Next(value));
    EXPECT_EQ(value, R"({"s":"a\"}"})");
}

TEST(JsonStreamFramerTest, BareTokensEndAtWhitespaceOrBracket)
{
    const auto values = FrameAll("hello world{\"x\":1}} 12 ");
    ASSERT_EQ(values.size(), 5u);
    EXPECT_EQ(values[0], "hello");
    EXPECT_EQ(values[1], "world");
    EXPECT_EQ(values[2], "{\"x\":1}");
    EXPECT_EQ(values[3], "}");
    EXPECT_EQ(values[4], "12");
}

TEST(JsonStreamFramerTest, BareTokenAtEndWaitsForItsEnd)
{
    JsonStreamFramer framer(1 << 20);
    std::string value;
    framer.Append("tru", 3);
    EXPECT_FALSE(framer.Next(value));
    framer.Append("e\n", 2);
    ASSERT_TRUE(framer.Next(value));
    EXPECT_EQ(value, "true");
}

TEST(JsonStreamFramerTest, OnlyWhitespaceGivesNothing)
{
    EXPECT_TRUE(FrameAll(" \n\r\t ").empty());
}

TEST(JsonStreamFramerTest, IncompleteValuePastLimitOverflows)
{
    JsonStreamFramer framer(16);
    std::string value;
    const std::string start = R"({"a":"0123456789)";
    framer.Append(start.data(), start.size());
    EXPECT_FALSE(framer.Next(value));
    EXPECT_FALSE(framer.Overflowed());
    framer.Append("ab", 2);
    EXPECT_FALSE(framer.Next(value));
    EXPECT_TRUE(framer.Overflowed());
}

TEST(JsonStreamFramerTest, CompleteValuesDoNotCountTowardsTheLimit)
{
    JsonStreamFramer framer(32);
    const std::string request = R"({"jsonrpc":"2.0","id":1})";
    for (int i = 0; i < 1000; ++i) {
        framer.Append(request.data(), request.size());
        std::string value;
        ASSERT_TRUE(framer.Next(value));
        EXPECT_FALSE(framer.Overflowed());
    }
    EXPECT_EQ(framer.PendingBytes(), 0u);
}

TEST(JsonStreamFramerTest, DeepNestingIsFramed)
{
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    const auto values = FrameAll(deep);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].size(), deep.size());
}

namespace {
// Frames `stream` as the transport does: a value that is not JSON (here:
// one that does not start with '{', '[' or '"', or a stray closer) makes
// the framer skip the rest of its run.
std::vector<std::string> FrameSkippingMalformed(JsonStreamFramer& framer)
{
    std::vector<std::string> values;
    std::string value;
    while (framer.Next(value)) {
        values.push_back(value);
        const char first = value[0];
        if (first != '{' && first != '[' && first != '"') {
            framer.SkipMalformedRun();
        }
    }
    return values;
}
}  // namespace

TEST(JsonStreamFramerTest, MalformedLineIsOneValue)
{
    JsonStreamFramer framer(1 << 20);
    const std::string stream = "this is not json\n{\"a\":1}\n";
    framer.Append(stream.data(), stream.size());
    const auto values = FrameSkippingMalformed(framer);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0], "this");
    EXPECT_EQ(values[1], "{\"a\":1}");
}

TEST(JsonStreamFramerTest, MalformedRunEndsAtTheNextObjectOrArray)
{
    JsonStreamFramer framer(1 << 20);
    const std::string stream = "oops more junk{\"a\":1} bad again [2]";
    framer.Append(stream.data(), stream.size());
    const auto values = FrameSkippingMalformed(framer);
    ASSERT_EQ(values.size(), 4u);
    EXPECT_EQ(values[0], "oops");
    EXPECT_EQ(values[1], "{\"a\":1}");
    EXPECT_EQ(values[2], "bad");
    EXPECT_EQ(values[3], "[2]");
}

TEST(JsonStreamFramerTest, LineBreakBeforeABracketEndsTheRun)
{
    JsonStreamFramer framer(1 << 20);
    const std::string stream = "junk \"quoted\"\nnext line {\"a\":1}";
    framer.Append(stream.data(), stream.size());
    const auto values = FrameSkippingMalformed(framer);
    // The run of "junk" ends at the line break; "next" starts a run of its own.
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(values[0], "junk");
    EXPECT_EQ(values[1], "next");
    EXPECT_EQ(values[2], "{\"a\":1}");
}

TEST(JsonStreamFramerTest, MalformedRunGoesOnOverLaterReads)
{
    JsonStreamFramer framer(1 << 20);
    const std::string first = "this is ";
    framer.Append(first.data(), first.size());
    auto values = FrameSkippingMalformed(framer);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0], "this");
    const std::string second = "not json";
    framer.Append(second.data(), second.size());
    EXPECT_TRUE(FrameSkippingMalformed(framer).empty());
    const std::string third = " at all\n{}";
    framer.Append(third.data(), third.size());
    values = FrameSkippingMalformed(framer);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0], "{}");
}

TEST(JsonStreamFramerTest, SkippedBytesAreNotKept)
{
    JsonStreamFramer framer(64);
    std::string value;
    framer.Append("x", 1);
    framer.Append(" ", 1);
    ASSERT_TRUE(framer.Next(value));
    framer.SkipMalformedRun();
    const std::string junk(1000, 'j');
    for (int i = 0; i < 100; ++i) {
        framer.Append(junk.data(), junk.size());
        EXPECT_FALSE(framer.Next(value));
        EXPECT_FALSE(framer.Overflowed());
    }
    EXPECT_LE(framer.PendingBytes(), junk.size());
}

TEST(JsonStreamFramerTest, StrayCloserStartsARunToo)
{
    JsonStreamFramer framer(1 << 20);
    const std::string stream = "} ] trailing\n[1]";
    framer.Append(stream.data(), stream.size());
    const auto values = FrameSkippingMalformed(framer);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0], "}");
    EXPECT_EQ(values[1], "[1]");
}
