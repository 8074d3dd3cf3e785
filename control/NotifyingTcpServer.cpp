#include "control/NotifyingTcpServer.h"

#include "control/rpc/JsonText.h"

#include <utility>

NotifyingTcpServer::NotifyingTcpServer(std::string address, uint16_t port)
    : Json::Rpc::TcpServer(std::move(address), port)
{
}

std::list<int> NotifyingTcpServer::GetClients() const
{
    return Json::Rpc::TcpServer::GetClients();
}

std::string NotifyingTcpServer::WireText(const Json::Value& notification) const
{
    return Json::Rpc::ToWireText(notification);
}

bool NotifyingTcpServer::Send(int client, const std::string& text)
{
    return Json::Rpc::TcpServer::Send(client, text);
}

void NotifyingTcpServer::SendToListeners(const Json::Value& notification)
{
    const std::string text = WireText(notification);
    for (const int client : GetListeners()) {
        static_cast<void>(Send(client, text));  // a client gone meanwhile misses it
    }
}
