#include "control/UsbMediaRequestServer.h"

#include "control/NotifyingTcpServer.h"
#include "control/rpc/Networking.h"
#include "core/Environment.h"
#include "core/LogLines.h"
#include "core/Logger.h"
#include "core/SystemdNotifier.h"
#include "player/NotificationBuilders.h"
#include "player/UsbMediaPlayer.h"

#include <unistd.h>

#include <memory>
#include <system_error>

namespace {
constexpr const char* kLogSource = "UsbMediaRequestServer";
// The covers of the tag library's albums, in a folder of their own inside
// the player's.
constexpr const char* kLibraryArtFolder = "/home/root/art_dump/library";

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
    {"getLibraryStatusUSB", &UsbMediaRequestHandler::getLibraryStatusUSB},
    {"getArtistsUSB", &UsbMediaRequestHandler::getArtistsUSB},
    {"getGenresUSB", &UsbMediaRequestHandler::getGenresUSB},
    {"getAlbumsUSB", &UsbMediaRequestHandler::getAlbumsUSB},
    {"getTracksUSB", &UsbMediaRequestHandler::getTracksUSB},
    {"searchLibraryUSB", &UsbMediaRequestHandler::searchLibraryUSB},
    {"playTracksUSB", &UsbMediaRequestHandler::playTracksUSB},
};
}  // namespace

void UsbMediaRequestServer::Init(const std::string& address)
{
    // A snapshot left by a run that ended without its pop is taken back
    // before any client can ask.
    m_handler.KeepSuspensionIn(StateDirectory());
    const std::string listenAddress = address.empty() ? kDefaultRpcAddress : address;
    m_pServer = std::make_unique<NotifyingTcpServer>(listenAddress, static_cast<uint16_t>(RpcPort()));
    m_handler.Player()->SetTcpServer(m_pServer.get());
    NotifyingTcpServer* server = m_pServer.get();
    // The library's clients, the ones that called one of its methods, hear
    // of its scans; the others see the stream they always saw.
    m_handler.KeepLibraryIn(
        StateDirectory(), SystemPath(kLibraryArtFolder),
        [server](const SLibraryStatus& status) { server->SendToListeners(BuildLibraryScanNotification(status)); },
        [server]() { server->ListenServingClient(); });
    if (!networking::init()) {
        LOG_AT(LogLine::kNetworkingInitFailed, LOG_ERROR, "Networking initialization failed\n");
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

UsbMediaRequestServer::UsbMediaRequestServer() = default;

UsbMediaRequestServer::~UsbMediaRequestServer()
{
    StopListener();
    Close();
}

bool UsbMediaRequestServer::StartListener()
{
    // The flag is raised before the thread starts so that its loop cannot
    // see it still false and end at once.
    m_isRunning = true;
    try {
        m_thread = std::thread(&UsbMediaRequestServer::Run, this);
    } catch (const std::system_error&) {
        m_isRunning = false;
    }
    return m_isRunning;
}

void UsbMediaRequestServer::StopListener()
{
    m_isRunning = false;
    if (m_pServer) {
        m_pServer->Wake();  // end the listener's current wait now
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void UsbMediaRequestServer::Close()
{
    if (m_pServer) {
        m_handler.StopLibrary();  // its scan announces through the server
        m_handler.Player()->SetTcpServer(nullptr);
        m_pServer.reset();
    }
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
        LOG_AT(LogLine::kBindFailed, LOG_ERROR, "Usb Media Service - Bind failed\n");
        m_isRunning = false;
        return;
    }
    if (!m_pServer->Listen()) {
        LOG_AT(LogLine::kListenFailed, LOG_ERROR, "Listen failed\n");
        m_isRunning = false;
        return;
    }
    LOG_AT(LogLine::kServerStarted, LOG_DEBUG, "Start UsbService server @%s:%d\n", m_pServer->GetAddress().c_str(),
           m_pServer->GetPort());

    // Under systemd: ready once clients can connect, and alive for as long
    // as this loop keeps turning.
    SystemdNotifier& systemd = SystemdNotifier::Get();
    systemd.Ready();
    CUsbMediaPlayer* player = m_handler.Player();
    // Between requests: the watchdog hears the loop is alive however long a
    // queue of slow requests is, and a stop ends serving after the current one.
    m_pServer->SetRequestGate([this, &systemd] {
        systemd.Alive();
        return m_isRunning.load();
    });
    while (m_isRunning) {
        systemd.Alive();
        m_pServer->WaitMessage(systemd.WaitMilliseconds(kWaitMilliseconds));
        player->CheckAlbumArt();
    }
    m_pServer->Close();
}
