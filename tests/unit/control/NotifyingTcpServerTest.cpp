// The player's notification sink over the TCP server: the clients, the wire
// text and the send are the transport's own.
#include "control/NotifyingTcpServer.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

TEST(NotifyingTcpServerTest, SinkAnswersAsTheTransport)
{
    NotifyingTcpServer server("127.0.0.1", 0);
    INotificationSink& sink = server;

    EXPECT_TRUE(sink.GetClients().empty());
    EXPECT_FALSE(sink.Send(3, "text\n"));

    Json::Value notification;
    notification["jsonrpc"] = "2.0";
    notification["method"] = "endOfPlayListNotification";
    notification["params"]["endOfPlayList"] = true;
    EXPECT_EQ(sink.WireText(notification), Json::Rpc::ToWireText(notification));
    EXPECT_EQ(sink.WireText(notification),
              "{\"jsonrpc\":\"2.0\",\"method\":\"endOfPlayListNotification\","
              "\"params\":{\"endOfPlayList\":true}}\n");
}
