// Entry of the USB media service daemon: banner, command line, request
// server and its listener thread, then the GLib main loop until SIGINT or
// SIGTERM.

#include "control/NotifyingTcpServer.h"
#include "control/UsbMediaRequestServer.h"
#include "core/CommandLine.h"
#include "core/Environment.h"
#include "core/LogLines.h"
#include "core/Logger.h"
#include "core/StartupTimer.h"
#include "core/SystemdNotifier.h"
#include "core/TextConversion.h"
#include "library/AudioFormats.h"
#include "library/ScanStop.h"
#include "player/UsbMediaPlayer.h"

#include <glib-unix.h>
#include <malloc.h>
#include <glib.h>
#include <gst/gst.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace {
constexpr const char* kLogSource = "main";

GMainLoop* g_mainLoop = nullptr;

// Runs on the main loop (GLib dispatches the signal there), so it may do
// ordinary work safely.
gboolean OnTerminateSignal(gpointer signalNumber)
{
    const int sig = GPOINTER_TO_INT(signalNumber);
    if (sig == SIGINT || sig == SIGTERM) {
        std::cout << "Exiting due to SIGINT/SIGTERM" << std::endl;
        SystemdNotifier::Get().Stopping();
        RequestScanStop();  // a scan on the listener thread ends now
        g_main_loop_quit(g_mainLoop);
    }
    return G_SOURCE_CONTINUE;
}

// glibc gives every thread that allocates while the others hold their
// arenas one of its own, up to eight per core, and keeps what each arena
// once held: the worker and streaming threads of a long session would leave
// tens of megabytes resident on a device with little memory. Two arenas
// serve this service's few busy threads; MALLOC_ARENA_MAX or GLIBC_TUNABLES
// in the environment still decide when set.
void LimitMallocArenas()
{
#ifdef M_ARENA_MAX
    if (std::getenv("MALLOC_ARENA_MAX") == nullptr && std::getenv("GLIBC_TUNABLES") == nullptr) {
        mallopt(M_ARENA_MAX, 2);
    }
#endif
}

// Signals whose default action ends the process but that mean nothing to
// this service: a hang-up from a closed terminal, a stray kill -USR1 or an
// alarm must not take the player down. Set before any thread exists.
void IgnoreStraySignals()
{
    for (const int sig : {SIGHUP, SIGUSR1, SIGUSR2, SIGALRM}) {
        std::signal(sig, SIG_IGN);
    }
}

void InstallTerminateHandler(int sig, int logLine, const char* failure)
{
    if (g_unix_signal_add(sig, OnTerminateSignal, GINT_TO_POINTER(sig)) == 0) {
        LOG_AT(logLine, LOG_WARN, "%s", failure);
    }
}
}  // namespace

int main(int argc, char** argv)
{
    LimitMallocArenas();
    IgnoreStraySignals();
    auto timer = std::make_unique<CStartupTimer>();
    gettimeofday(&timer->start, nullptr);
    std::cout << timer->name << " Started. " << std::endl;

    CLogger::GetInstance().SetLevel(LOG_WARN);
    std::string address = kDefaultRpcAddress;
    if (argc > 1) {
        ApplyCommandLine(argc, argv, address);
    }
    // The audio file extensions hold for the process's life: read once, here,
    // while no other thread exists, and logged at the level just set.
    AudioFormats();

    // GStreamer takes its own options (--gst-*) out of the command line here,
    // before the request server exists: constructing it creates the player,
    // whose initialisation of GStreamer without arguments would otherwise
    // come first and leave those options unread. "--gst-version" prints the
    // library's version and ends the process.
    gst_init(&argc, &argv);

    // Termination is handled before the control port opens, so a client that
    // can connect can also stop the service cleanly.
    InstallTerminateHandler(SIGTERM, LogLine::kSigtermNotHandled, "Error signal SIGTERM will not be handled\n");
    InstallTerminateHandler(SIGINT, LogLine::kSigintNotHandled, "Error signal SIGINT will not be handled\n");

    // While descriptors are plenty: a reply written when they have run out
    // still carries its message. Failing here is not fatal: conversions
    // try again and give "" until it opens.
    OpenTextConverters();

    UsbMediaRequestServer server;
    server.Init(address);
    server.StartListener();

    g_mainLoop = g_main_loop_new(nullptr, FALSE);

    gettimeofday(&timer->end, nullptr);
    TimevalSubtract(&timer->elapsed, &timer->end, &timer->start);
    std::printf("\n\n%ld.%06ld\n", static_cast<long>(timer->elapsed.tv_sec),
                static_cast<long>(timer->elapsed.tv_usec));
    std::fflush(stdout);
    std::cout << timer->name << " Ended. " << std::endl;
    timer.reset();

    g_main_loop_run(g_mainLoop);

    g_main_loop_unref(g_mainLoop);

    // Shutdown, in this order:
    // 1. the listener: its loop ends, closing every client, and is joined;
    server.StopListener();
    // 2. the player: playback stops and its threads are joined (here, not
    //    under static destructors);
    CUsbMediaPlayer::GetInstance().Shutdown();
    // 3. the TCP server, which the player notified through until now.
    server.Close();
    return 0;
}
