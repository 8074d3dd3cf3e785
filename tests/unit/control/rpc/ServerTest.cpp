#include "control/rpc/Server.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

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
    bool Large(const Json::Value& request, Json::Value& response)
    {
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = std::string(request["params"]["bytes"].asUInt(), 'x');
        return true;
    }
    bool Exhausts(const Json::Value&, Json::Value&) { throw std::bad_alloc(); }
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
        server.AddMethod(std::make_unique<Method>(echo, &Echo::Large, "large"));
        server.AddMethod(std::make_unique<Method>(echo, &Echo::Exhausts, "exhausts"));
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

// A method that reads with the library's throwing accessors is the
// service's fault, not the client's: an internal error, and the server goes on.
TEST_F(ServerTest, MethodThatThrowsOnItsParametersIsAnInternalError)
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
    EXPECT_EQ(server.MethodCount(), 5u);
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

// Numbers the parser would change (past 64 bits, fractions, exponents) come
// back exactly as they were sent.
TEST_F(ServerTest, NumericIdIsEchoedAsSent)
{
    for (const std::string id : {"18446744073709551616", "0.1", "-0", "1E2", "7", "-12", "1.50"}) {
        EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"ping","id":)" + id + "}"),
                  "{\"id\":" + id + ",\"jsonrpc\":\"2.0\",\"result\":true}\n");
    }
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"nope","id":1e300})"),
              "{\"error\":{\"code\":-32601,\"message\":\"Method not found\"},\"id\":1e300,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"([{"jsonrpc":"2.0","method":"ping","id":0.30},{"jsonrpc":"2.0","method":"ping","id":2}])"),
              "[{\"id\":0.30,\"jsonrpc\":\"2.0\",\"result\":true},{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":true}]\n");
}

TEST_F(ServerTest, BatchOfTheLimitIsServedAndOneMoreIsRefusedWhole)
{
    std::string batch = "[";
    for (size_t i = 0; i < Server::kMaxBatchRequests; ++i) {
        batch += (i == 0 ? "" : ",") + std::string(R"({"jsonrpc":"2.0","method":"ping","id":1})");
    }
    const std::string reply = server.Process(batch + "]");
    EXPECT_EQ(echo.calls, static_cast<int>(Server::kMaxBatchRequests));
    ASSERT_FALSE(reply.empty());
    EXPECT_EQ(reply.front(), '[');

    echo.calls = 0;
    EXPECT_EQ(server.Process(batch + R"(,{"jsonrpc":"2.0","method":"ping","id":1}])"),
              "{\"error\":{\"code\":-32600,\"message\":\"Invalid Request\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(echo.calls, 0);
    // Commas inside strings and nested values are not elements.
    EXPECT_EQ(server.Process(R"([{"jsonrpc":"2.0","method":"ping","id":",,,,","params":[1,2,3]}])"),
              "[{\"id\":\",,,,\",\"jsonrpc\":\"2.0\",\"result\":true}]\n");
}

// A batch is answered one element a step: each step gives the next piece of
// the reply array, so the whole array is never held at once.
TEST_F(ServerTest, BatchIsAnsweredOneElementAStep)
{
    std::string immediate;
    bool malformed = false;
    Json::Rpc::Exchange exchange = server.Open(
        R"([{"jsonrpc":"2.0","method":"notify"},{"jsonrpc":"2.0","method":"ping","id":1},)"
        R"({"jsonrpc":"2.0","method":"notify"},{"jsonrpc":"2.0","method":"ping","id":2}])",
        immediate, malformed);
    EXPECT_EQ(immediate, "");
    EXPECT_FALSE(malformed);
    EXPECT_EQ(server.Step(exchange), "");
    EXPECT_FALSE(exchange.WritingBatch());
    EXPECT_EQ(server.Step(exchange), "[{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":true}");
    EXPECT_TRUE(exchange.WritingBatch());
    EXPECT_EQ(server.Step(exchange), "");
    EXPECT_EQ(echo.calls, 3);
    EXPECT_EQ(server.Step(exchange), ",{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":true}]\n");
    EXPECT_TRUE(exchange.Finished());
    EXPECT_FALSE(exchange.WritingBatch());
}

TEST_F(ServerTest, ReplyPastTheLimitIsReplacedByAnError)
{
    server.SetMaxReplyBytes(1000);
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"large","id":4,"params":{"bytes":100}})").size(), 137u);
    EXPECT_EQ(server.Process(R"({"jsonrpc":"2.0","method":"large","id":4,"params":{"bytes":1000}})"),
              "{\"error\":{\"code\":-32603,\"message\":\"reply too large\"},\"id\":4,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_EQ(server.Process(R"([{"jsonrpc":"2.0","method":"large","id":5,"params":{"bytes":2000}},)"
                             R"({"jsonrpc":"2.0","method":"ping","id":6}])"),
              "[{\"error\":{\"code\":-32603,\"message\":\"reply too large\"},\"id\":5,\"jsonrpc\":\"2.0\"},"
              "{\"id\":6,\"jsonrpc\":\"2.0\",\"result\":true}]\n");
}

TEST_F(ServerTest, AllocationFailureFailsThatRequestOnly)
{
    EXPECT_EQ(server.Process(R"([{"jsonrpc":"2.0","method":"exhausts","id":1},{"jsonrpc":"2.0","method":"ping","id":2}])"),
              "[{\"error\":{\"code\":-32603,\"message\":\"out of memory\"},\"id\":1,\"jsonrpc\":\"2.0\"},"
              "{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":true}]\n");
}
