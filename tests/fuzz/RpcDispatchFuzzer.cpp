// libFuzzer target for the control interface: arbitrary bytes go through the
// transport's framing in input-derived chunk sizes, and every framed value is
// dispatched through the service's real method table, with the player running
// on a small temporary stick.

#include "control/NotifyingTcpServer.h"
#include "control/UsbMediaRequestHandler.h"
#include "control/UsbMediaRequestServer.h"
#include "control/rpc/FileDescriptor.h"
#include "control/rpc/JsonStreamFramer.h"
#include "control/rpc/JsonText.h"
#include "control/rpc/Server.h"
#include "control/rpc/TcpServer.h"
#include "core/Logger.h"
#include "core/TextConversion.h"
#include "player/UsbMediaPlayer.h"

#include <arpa/inet.h>
#include <glib.h>
#include <gst/gst.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

// "seek" sleeps 0.7 s before it acts: far too slow for fuzzing.
const std::set<std::string> kSlowMethods = {"seek"};

constexpr const char* kRoot = "/tmp/usbmedia-fuzz/root";
constexpr size_t kMaxChunk = 64;
constexpr int kMaxMainLoopIterations = 64;

void MakeDir(const std::string& path)
{
    mkdir(path.c_str(), 0755);
}

void WriteBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

void PutLittleEndian(std::string& out, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
    }
}

// A short mono 8 kHz 16-bit PCM WAV holding a quiet square wave.
std::string SmallWav(uint32_t sampleCount)
{
    const uint32_t dataBytes = sampleCount * 2;
    std::string wav = "RIFF";
    PutLittleEndian(wav, 36 + dataBytes, 4);
    wav += "WAVEfmt ";
    PutLittleEndian(wav, 16, 4);
    PutLittleEndian(wav, 1, 2);      // PCM
    PutLittleEndian(wav, 1, 2);      // mono
    PutLittleEndian(wav, 8000, 4);   // sample rate
    PutLittleEndian(wav, 16000, 4);  // byte rate
    PutLittleEndian(wav, 2, 2);      // block align
    PutLittleEndian(wav, 16, 2);     // bits per sample
    wav += "data";
    PutLittleEndian(wav, dataBytes, 4);
    for (uint32_t i = 0; i < sampleCount; ++i) {
        PutLittleEndian(wav, (i / 20) % 2 != 0 ? 0x0400 : 0xfc00, 2);
    }
    return wav;
}

// The stick: folders, playable files, a file that only looks like audio and
// one that is not media at all, under USBMEDIA_ROOT. The root is fixed so the
// seeds and the dictionary can name real paths.
void MakeTemporaryStick()
{
    const std::string base = kRoot;
    MakeDir("/tmp/usbmedia-fuzz");
    MakeDir(base);
    MakeDir(base + "/mnt");
    MakeDir(base + "/mnt/usb-stick2");
    MakeDir(base + "/home");
    MakeDir(base + "/home/root");
    MakeDir(base + "/home/root/art_dump");
    const std::string stick = base + "/mnt/usb-stick1";
    MakeDir(stick);
    MakeDir(stick + "/Jazz");
    MakeDir(stick + "/Rock");
    MakeDir(stick + "/Rock/Live");
    MakeDir(stick + "/Empty");
    WriteBytes(stick + "/intro.wav", SmallWav(4000));
    WriteBytes(stick + "/Jazz/one.wav", SmallWav(8000));
    WriteBytes(stick + "/Jazz/two.wav", SmallWav(2000));
    WriteBytes(stick + "/Jazz/broken.mp3", "ID3\x03garbage that is not an mp3 frame");
    WriteBytes(stick + "/Rock/Live/caf\xe9.wav", SmallWav(3000));
    WriteBytes(stick + "/Rock/notes.txt", "not media");
    setenv("USBMEDIA_ROOT", base.c_str(), 1);
    // Relative paths resolve inside the root too.
    if (chdir(base.c_str()) != 0) {
        std::perror("chdir");
        std::abort();
    }
}

// The player notifies through a real TCP server with one connected client
// that reads everything, as in the daemon: with no client it would stop
// playback at the first notification.
class NotificationSink {
public:
    // Port 0: the kernel picks one while binding, so no other process can
    // take it in between.
    NotificationSink() : m_tcp("127.0.0.1", 0)
    {
        if (!m_tcp.Bind() || !m_tcp.Listen()) {
            std::fprintf(stderr, "notification server failed\n");
            std::abort();
        }
    }

    NotifyingTcpServer& Server() { return m_tcp; }

    // Sends queued notifications, reads them off, and reconnects a client
    // that the server dropped.
    void Pump()
    {
        m_tcp.WaitMessage(0);
        Drain();
        if (m_tcp.GetClients().empty()) {
            Connect();
        }
    }

private:
    void Connect()
    {
        m_client.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(m_tcp.GetPort());
        if (connect(m_client.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            std::perror("connect");
            std::abort();
        }
        for (int round = 0; round < 100 && m_tcp.GetClients().empty(); ++round) {
            m_tcp.WaitMessage(10);
        }
    }

    void Drain()
    {
        if (!m_client.IsValid()) {
            return;
        }
        char buffer[65536];
        while (recv(m_client.Get(), buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
        }
    }

    NotifyingTcpServer m_tcp;
    Json::Rpc::FileDescriptor m_client;
};

struct SFuzzService {
    SFuzzService()
    {
        RegisterUsbMediaMethods(server, handler, kSlowMethods);
        handler.Player()->SetTcpServer(&notifications.Server());
        notifications.Pump();
    }
    NotificationSink notifications;
    UsbMediaRequestHandler handler;
    Json::Rpc::Server server;
};

SFuzzService* g_service = nullptr;

// Lets the bus watch see end of stream, errors and tags, as the daemon's
// main loop would, without blocking.
void RunMainLoopBriefly()
{
    for (int i = 0; i < kMaxMainLoopIterations; ++i) {
        if (g_main_context_iteration(nullptr, FALSE) == FALSE) {
            return;
        }
    }
}

// The service walks whatever folder a client names (indexUsbStorage "/"
// indexes the whole machine, playFileUSB of an unnamed folder plays "/"),
// which would turn the fuzzer into a slow file system crawler. Every string
// that, as the service reads it (ISO8859-1), could name a place outside the
// temporary root is moved below it: any value of a path parameter, and any
// other text holding a "/" or "..".
const std::set<std::string> kPathKeys = {"path", "usbRootPath", "usbStoragePath"};

bool StartsWithRoot(const std::string& latin1)
{
    return latin1.compare(0, std::strlen(kRoot), kRoot) == 0;
}

bool MayLeaveRoot(const std::string& latin1, bool isPathParameter)
{
    if (latin1.find("..") != std::string::npos) {
        return true;
    }
    const bool looksLikePath = isPathParameter || latin1.find('/') != std::string::npos || latin1 == ".";
    return looksLikePath && !StartsWithRoot(latin1);
}

std::string BelowRoot(std::string latin1)
{
    for (size_t dots = latin1.find(".."); dots != std::string::npos; dots = latin1.find("..")) {
        latin1.replace(dots, 2, "__");
    }
    if (!StartsWithRoot(latin1)) {
        latin1 = std::string(kRoot) + "/" + latin1;
    }
    return Latin1ToUtf8(latin1);
}

// True when some string inside `value` was moved.
bool ConfineStrings(Json::Value& value, bool isPathParameter)
{
    bool changed = false;
    if (value.isString()) {
        const std::string latin1 = Utf8ToLatin1(value.asCString());
        if (MayLeaveRoot(latin1, isPathParameter)) {
            value = BelowRoot(latin1);
            changed = true;
        }
    } else if (value.isObject()) {
        for (const std::string& key : value.getMemberNames()) {
            changed = ConfineStrings(value[key], kPathKeys.count(key) != 0) || changed;
        }
    } else if (value.isArray()) {
        for (Json::Value& element : value) {
            changed = ConfineStrings(element, false) || changed;
        }
    }
    return changed;
}

// playFileUSB joins "path" and "name", both "" when missing: a file without
// a path would name "/". Such a request gets the root as its path.
bool ConfinePlayFile(Json::Value& request)
{
    if (!request.isObject() || request.get("method", Json::Value()) != "playFileUSB") {
        return false;
    }
    Json::Value& params = request["params"];
    if (!params.isNull() && !params.isObject()) {
        return false;
    }
    Json::Value& file = params["file"];
    if ((!file.isNull() && !file.isObject()) || file.isMember("path")) {
        return false;
    }
    file["path"] = kRoot;
    return true;
}

bool ConfineRequests(Json::Value& document)
{
    bool changed = ConfineStrings(document, false);
    if (document.isArray()) {
        for (Json::Value& request : document) {
            changed = ConfinePlayFile(request) || changed;
        }
    } else {
        changed = ConfinePlayFile(document) || changed;
    }
    return changed;
}

// The framed text as the fuzzer dispatches it: unchanged unless it is JSON
// holding a string that could lead out of the root.
std::string ConfinedText(const std::string& text)
{
    Json::Value document;
    if (!Json::Rpc::ParseJson(text, document) || !ConfineRequests(document)) {
        return text;
    }
    return Json::Rpc::ToWireText(document);
}

uint64_t Fnv1a(const uint8_t* data, size_t size)
{
    uint64_t hash = 1469598103934665603ull;
    for (size_t i = 0; i < size; ++i) {
        hash = (hash ^ data[i]) * 1099511628211ull;
    }
    return hash;
}

// Chunk sizes from 1 to kMaxChunk, drawn from a generator seeded by the
// input itself, so a seed stays plain JSON and a finding replays exactly.
class ChunkSizes {
public:
    explicit ChunkSizes(uint64_t seed) : m_state(seed != 0 ? seed : 1) {}
    size_t Next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return 1 + static_cast<size_t>(m_state % kMaxChunk);
    }

private:
    uint64_t m_state;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    MakeTemporaryStick();
    setenv("USBMEDIA_AUDIO_SINK", "fakesink sync=false", 1);
    gst_init(argc, argv);
    CLogger::GetInstance().SetLevel(LOG_ALL);
    g_service = new SFuzzService();  // lives until the process ends, like the daemon's
    // Start from an indexed stick, as a client usually does, so that every
    // input can browse and play at once.
    g_service->server.Process(std::string(R"({"jsonrpc":"2.0","id":0,"method":"indexUsbStorage",)") +
                              R"("params":{"usbStoragePath":")" + kRoot + R"(/mnt/usb-stick1"}})");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Json::Rpc::JsonStreamFramer framer(Json::Rpc::TcpServer::kMaxRequestBytes);
    ChunkSizes chunks(Fnv1a(data, size));
    size_t offset = 0;
    while (offset < size) {
        const size_t length = std::min(chunks.Next(), size - offset);
        framer.Append(reinterpret_cast<const char*>(data) + offset, length);
        offset += length;
        std::string text;
        while (framer.Next(text)) {
            bool malformed = false;
            g_service->server.Process(ConfinedText(text), malformed);
            if (malformed) {
                framer.SkipMalformedRun();  // as the TCP server does
            }
        }
        if (framer.Overflowed()) {
            break;  // the server closes such a connection
        }
    }
    g_service->handler.Player()->CheckAlbumArt();
    RunMainLoopBriefly();
    g_service->notifications.Pump();
    return 0;
}
