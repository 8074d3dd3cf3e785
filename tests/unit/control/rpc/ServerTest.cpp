#include "control/rpc/Server.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

#include <memory>

using Json::Rpc::Server;

namespace {
class Echo {
public:
    bool Ping(const Json::Value& request, Json::Value& response)
    {
        ++calls;
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = true;
        return true;
    }
    bool Silent(const Json::Value&, Json::Value& response)
    {
        ++calls;
        response = Json::Value();
        return true;
    }
    bool ReadsInt(const Json::Value& request, Json::Value& response)
    {
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = request["params"]["n"].asInt();
        return true;
    }
    int calls = 0;
};

class ServerTest : public testing::Test {
protected:
    void SetUp() override
    {
        using Method = Json::Rpc::RpcMethod<Echo>;
        server.AddMethod(std::make_unique<Method>(echo, &Echo::Ping, "ping"));
        server.AddMethod(std::make_unique<Method>(echo, &Echo::Silent, "notify"));
        server.AddMethod(std::make_unique<Method>(echo, &Echo::ReadsInt, "readsInt"));
    }
    Echo echo;
    Server server;
};
}  // namespace

TEST_F(ServerTest, ReplyIsCompactSortedWithNewline)
{
    EXPECT_EQ(server.Process(R"({"method":"ping","jsonrpc":"2.0","id":7})"),
              "{\"id\":7,\"jsonrpc\":\"2.0\",\"result\":true}\n");
}

TEST_F(ServerTest, IdOfAnyTypeIsEchoed)
{
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"ping","id":"abc"})"),
              "{\"id\":\"abc\",\"jsonrpc\":\"2.0\",\"result\":true}\n");
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"ping","id":null})"),
              "{\"id\":null,\"jsonrpc\":\"2.0\",\"result\":true}\n");
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"ping"})"),
              "{\"id\":null,\"jsonrpc\":\"2.0\",\"result\":true}\n");
}

TEST_F(ServerTest, NullResponseWritesNothing)
{
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"notify","id":1})"), "");
    EXPECT_EQ(echo.calls, 1);
}

TEST_F(ServerTest, NotJsonIsParseError)
{
    EXPECT_EQ(server.Process("{oops"),
              "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"({"a":1} trailing)"),
              "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n");
}

TEST_F(ServerTest, OnlyTextThatIsNoJsonCountsAsMalformed)
{
    bool malformed = false;
    server.Process("this", malformed);
    EXPECT_TRUE(malformed);
    server.Process("42", malformed);
    EXPECT_FALSE(malformed);  // JSON, though not a request
    server.Process(R"({"jsonrpc":"2.0","method":"ping","id":1})", malformed);
    EXPECT_FALSE(malformed);
    server.Process("{oops}", malformed);
    EXPECT_TRUE(malformed);
}

TEST_F(ServerTest, NotARequestIsInvalidRequest)
{
    const std::string invalid =
        "{\"error\":{\"code\":-32600,\"message\":\"Invalid Request\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n";
    EXPECT_EQ(server.Process("42"), invalid);
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","id":null})"), invalid);
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":5})"), invalid);
    EXPECT_EQ(server.Process("[]"), invalid);
    EXPECT_EQ(server.Process(R"({"jsonrpc":"1.0","method":"ping","id":3})"),
              "{\"error\":{\"code\":-32600,\"message\":\"Invalid Request\"},\"id\":3,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"({"method":"ping","id":3})"),
              "{\"error\":{\"code\":-32600,\"message\":\"Invalid Request\"},\"id\":3,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(echo.calls, 0);
}

TEST_F(ServerTest, UnknownMethodCarriesTheId)
{
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"Ping","id":9})"),
              "{\"error\":{\"code\":-32601,\"message\":\"Method not found\"},\"id\":9,\"jsonrpc\":\"2.0\"}\n");
}

TEST_F(ServerTest, BatchAnswersNonNullRepliesAsArray)
{
    const std::string reply = server.Process(
        R"([{"jsonrpc":"2.0","method":"ping","id":1},{"jsonrpc":"2.0","method":"notify","id":2},5,)"
        R"({"jsonrpc":"2.0","method":"nope","id":3}])");
    EXPECT_EQ(reply,
              "[{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":true},"
              "{\"error\":{\"code\":-32600,\"message\":\"Invalid Request\"},\"id\":null,\"jsonrpc\":\"2.0\"},"
              "{\"error\":{\"code\":-32601,\"message\":\"Method not found\"},\"id\":3,\"jsonrpc\":\"2.0\"}]\n");
}

TEST_F(ServerTest, BatchOfOnlyNullRepliesWritesNothing)
{
    EXPECT_EQ(server.Process(R"([{"jsonrpc":"2.0","method":"notify"}])"), "");
}

// A method that throws from the library's strict accessors is a fault of the
// method: answered "Internal error", never "Invalid params".
TEST_F(ServerTest, MethodThrowingFromStrictAccessorIsInternalError)
{
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"readsInt","id":1,"params":{"n":"x"}})"),
              "{\"error\":{\"code\":-32603,\"message\":\"Internal error\"},\"id\":1,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"readsInt","id":2,"params":[1]})"),
              "{\"error\":{\"code\":-32603,\"message\":\"Internal error\"},\"id\":2,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"readsInt","id":3})"),
              "{\"id\":3,\"jsonrpc\":\"2.0\",\"result\":0}\n");
}

TEST_F(ServerTest, DuplicateRegistrationReachesOneMethod)
{
    using Method = Json::Rpc::RpcMethod<Echo>;
    server.AddMethod(std::make_unique<Method>(echo, &Echo::Ping, "ping"));
    server.Process(R"({"jsonrpc":"2.0","method":"ping","id":1})");
    EXPECT_EQ(echo.calls, 1);
    EXPECT_EQ(server.MethodCount(), 3u);
}

TEST(JsonTextTest, NonAsciiIsEscapedLikeFastWriter)
{
    Json::Value value;
    value["name"] = "Caf\xC3\xA9";
    EXPECT_EQ(Json::Rpc::ToWireText(value), "{\"name\":\"Caf\\u00e9\"}\n");
}

TEST(JsonTextTest, DeepNestingIsRejectedNotCrashed)
{
    Json::Value value;
    EXPECT_FALSE(Json::Rpc::ParseJson(std::string(100000, '[') + std::string(100000, ']'), value));
}
