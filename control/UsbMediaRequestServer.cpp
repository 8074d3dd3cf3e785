#include "control/UsbMediaRequestServer.h"

#include "control/NotifyingTcpServer.h"
#include "control/rpc/Networking.h"
#include "core/Environment.h"
#include "core/Logger.h"
#include "core/SystemdNotifier.h"
#include "player/UsbMediaPlayer.h"

#include <unistd.h>

#include <memory>

namespace {
constexpr const char* kLogSource = "UsbMediaRequestServer";
constexpr const char* kDefaultAddress = "127.0.0.1";

using HandlerMethod = Json::Rpc::RpcMethod<UsbMediaRequestHandler>::Method;

struct SRegistration {
    const char* name;
    HandlerMethod method;
};

// The method table, in registration order. "playFileUSB" is registered
// twice on purpose; the second registration replaces the first, so calls
// reach it once.
const SRegistration kRegistry[] = {
    {"print", &UsbMediaRequestHandler::Print},
    {"notify", &UsbMediaRequestHandler::Notify},
    {"getFileListUSB", &UsbMediaRequestHandler::getFileListUSB},
    {"getFileListByGroupID", &UsbMediaRequestHandler::getFileListByGroupID},
    {"isUSBconnected", &UsbMediaRequestHandler::isUSBconnected},
    {"setRepeatModeUSB", &UsbMediaRequestHandler::setRepeatModeUSB},
    {"getRepeatModeUSB", &UsbMediaRequestHandler::getRepeatModeUSB},
    {"enableShuffleUSB", &UsbMediaRequestHandler::enableShuffleUSB},
    {"isShuffleEnabledUSB", &UsbMediaRequestHandler::isShuffleEnabledUSB},
    {"playFileUSB", &UsbMediaRequestHandler::playFileUSB},
    {"playFileUSB", &UsbMediaRequestHandler::playFileUSB},
    {"getCurrentTrackInfoUSB", &UsbMediaRequestHandler::getCurrentTrackInfoUSB},
    {"playUSB", &UsbMediaRequestHandler::playUSB},
    {"pauseUSB", &UsbMediaRequestHandler::pauseUSB},
    {"nextUSB", &UsbMediaRequestHandler::nextUSB},
    {"previousUSB", &UsbMediaRequestHandler::previousUSB},
    {"stopPlayingUSB", &UsbMediaRequestHandler::stopPlayingUSB},
    {"restartSongUSB", &UsbMediaRequestHandler::restartSongUSB},
    {"getTrackAlbumArt", &UsbMediaRequestHandler::getTrackAlbumArt},
    {"getBufferedAlbumArt", &UsbMediaRequestHandler::getBufferedAlbumArt},
    {"ping", &UsbMediaRequestHandler::ping},
    {"usbConnectionEvent", &UsbMediaRequestHandler::usbConnectionEvent},
    {"playAllSongsUSB", &UsbMediaRequestHandler::playAllSongsUSB},
    {"getCurrentPlayerState", &UsbMediaRequestHandler::getCurrentPlayerState},
    {"seekForward", &UsbMediaRequestHandler::seekForward},
    {"seekBackward", &UsbMediaRequestHandler::seekBackward},
    {"playFileIndex", &UsbMediaRequestHandler::playFileIndex},
    {"setSoftPowerOff", &UsbMediaRequestHandler::setSoftPowerOff},
    {"popSuspendedTrackInfo", &UsbMediaRequestHandler::popSuspendedTrackInfo},
    {"seek", &UsbMediaRequestHandler::seek},
    {"indexUsbStorage", &UsbMediaRequestHandler::indexUsbStorage},
    {"getUsbStorageCrc32", &UsbMediaRequestHandler::getUsbStorageCrc32},
};
}  // namespace

void UsbMediaRequestServer::Init(const std::string& address)
{
    const std::string listenAddress = address.empty() ? kDefaultAddress : address;
    m_pServer = new NotifyingTcpServer(listenAddress, static_cast<uint16_t>(RpcPort()));
    m_handler.Player()->SetTcpServer(m_pServer);
    if (!networking::init()) {
        LOG_AT(72, LOG_ERROR, "Networking initialization failed\n");
        return;
    }
    RegisterUsbMediaMethods(*m_pServer, m_handler);
}

void RegisterUsbMediaMethods(Json::Rpc::Server& server, UsbMediaRequestHandler& handler,
                             const std::set<std::string>& excluded)
{
    for (const SRegistration& entry : kRegistry) {
        if (excluded.count(entry.name) != 0) {
            continue;
        }
        server.AddMethod(std::make_unique<Json::Rpc::RpcMethod<UsbMediaRequestHandler>>(
            handler, entry.method, entry.name));
    }
}

void* UsbMediaRequestServer::InternalThreadEntryFunc(void* self)
{
    static_cast<UsbMediaRequestServer*>(self)->Run();
    return nullptr;
}

void UsbMediaRequestServer::Run()
{
    bool bound = false;
    for (int attempt = 1; attempt <= kBindAttempts && !bound; ++attempt) {
        bound = m_pServer->Bind();
        if (!bound && attempt < kBindAttempts) {
            usleep(kBindRetryMicroseconds);
        }
    }
    if (!bound) {
        LOG_AT(203, LOG_ERROR, "Usb Media Service - Bind failed\n");
        m_isRunning = false;
        return;
    }
    if (!m_pServer->Listen()) {
        LOG_AT(213, LOG_ERROR, "Listen failed\n");
        m_isRunning = false;
        return;
    }
    LOG_AT(218, LOG_DEBUG, "Start UsbService server @%s:%d\n", m_pServer->GetAddress().c_str(),
           m_pServer->GetPort());

    // Under systemd: ready once clients can connect, and alive for as long
    // as this loop keeps turning.
    SystemdNotifier& systemd = SystemdNotifier::Get();
    systemd.Ready();
    CUsbMediaPlayer* player = m_handler.Player();
    while (m_isRunning) {
        systemd.Alive();
        m_pServer->WaitMessage(systemd.WaitMilliseconds(kWaitMilliseconds));
        player->CheckAlbumArt();
    }
    m_pServer->Close();
    networking::cleanup();
}
