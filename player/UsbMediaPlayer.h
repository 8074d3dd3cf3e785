#pragma once

#include "core/Error.h"

namespace Json {
namespace Rpc {
class TcpServer;
}
}  // namespace Json

// The one object that owns playback.
class CUsbMediaPlayer : public virtual CError {
public:
    static CUsbMediaPlayer& GetInstance();

    // Whom notifications go to; set once by the request server.
    void SetTcpServer(Json::Rpc::TcpServer* server) { m_pTcpServer = server; }

    // Called by the listener loop after every wait: starts the album-art
    // worker when one is due.
    void CheckAlbumArt();

    CUsbMediaPlayer(const CUsbMediaPlayer&) = delete;
    CUsbMediaPlayer& operator=(const CUsbMediaPlayer&) = delete;

private:
    CUsbMediaPlayer() = default;

    Json::Rpc::TcpServer* m_pTcpServer = nullptr;
};
