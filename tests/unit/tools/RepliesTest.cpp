#include "tools/Replies.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

using namespace usbctl;

namespace {
Json::Value Parse(const std::string& text)
{
    Json::Value value;
    EXPECT_TRUE(Json::Rpc::ParseJson(text, value)) << text;
    return value;
}
}  // namespace

TEST(RepliesTest, SuccessfulReplies)
{
    EXPECT_FALSE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0","result":true})")).failed);
    EXPECT_FALSE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0","result":{"success":true}})")).failed);
    EXPECT_FALSE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0","result":{"mode":0}})")).failed);
    EXPECT_FALSE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0"})")).failed);  // usbConnectionEvent
}

TEST(RepliesTest, ErrorBesideResult)
{
    const ReplyOutcome outcome = CheckReply(Parse(
        R"({"error":{"code":-1,"message":"E: No Song to play!"},"id":3,"jsonrpc":"2.0","result":{"success":false}})"));
    EXPECT_TRUE(outcome.failed);
    EXPECT_EQ(outcome.message, "E: No Song to play! (code -1)");
}

TEST(RepliesTest, ProtocolError)
{
    const ReplyOutcome outcome =
        CheckReply(Parse(R"({"error":{"code":-32601,"message":"Method not found"},"id":1,"jsonrpc":"2.0"})"));
    EXPECT_TRUE(outcome.failed);
    EXPECT_EQ(outcome.message, "Method not found (code -32601)");
    EXPECT_EQ(ErrorCode(Parse(R"({"error":{"code":-10,"message":"x"}})")), -10);
    EXPECT_EQ(ErrorCode(Parse(R"({"result":true})")), 0);
}

TEST(RepliesTest, NoSuccessWithoutError)
{
    EXPECT_TRUE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0","result":{"success":false}})")).failed);
}

TEST(RepliesTest, BareFalse)
{
    EXPECT_TRUE(CheckReply(Parse(R"({"id":1,"jsonrpc":"2.0","result":false})")).failed);
}

TEST(RepliesTest, NotAnObject)
{
    EXPECT_TRUE(CheckReply(Json::Value()).failed);
    EXPECT_TRUE(CheckReply(Parse("[1]")).failed);
}

TEST(RepliesTest, PrettyJsonIndentsAndKeepsUtf8)
{
    EXPECT_EQ(PrettyJson(Parse(R"({"b":[1,{"c":null}],"a":"Caf\u00e9","e":{},"f":[]})")),
              "{\n"
              "  \"a\": \"Caf\xC3\xA9\",\n"
              "  \"b\": [\n"
              "    1,\n"
              "    {\n"
              "      \"c\": null\n"
              "    }\n"
              "  ],\n"
              "  \"e\": {},\n"
              "  \"f\": []\n"
              "}");
    EXPECT_EQ(PrettyJson(Json::Value(true)), "true");
}

TEST(RepliesTest, CompactJsonHasNoNewline)
{
    EXPECT_EQ(CompactJson(Parse(R"({ "b" : 1, "a" : 2 })")), R"({"a":2,"b":1})");
}
