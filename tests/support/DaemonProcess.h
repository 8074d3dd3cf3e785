#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace testing_support {

// A TCP port on 127.0.0.1 where nothing listens, for as long as this lives:
// it holds the port bound but not listening, so no other test can take it
// and a connection to it is refused.
class HeldPort {
public:
    HeldPort();
    ~HeldPort();
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;

    int Port() const { return m_port; }

private:
    int m_fd = -1;
    int m_port = 0;
};

// The real daemon binary, started in its own process with standard output
// captured to a file.
//
// Unless the test asks for a port or an address, the daemon serves on a
// socket this helper made listening on 127.0.0.1 and handed over the way
// systemd's socket activation does (descriptor 3, LISTEN_FDS, LISTEN_PID):
// its port is taken before the daemon starts, so two tests running at the
// same time can never share one and reach each other's daemon.
class DaemonProcess {
public:
    struct Options {
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;  // added to the test's own
        int port = 0;  // 0: a listening socket handed over; else the daemon binds this one
        bool waitUntilServing = true;
        int maxDescriptors = 0;  // RLIMIT_NOFILE of the daemon; 0: the test's own
        // Run the daemon as this user and group, without supplementary
        // groups (a test running as root asks for an unprivileged daemon);
        // 0 keeps the test's own.
        uid_t user = 0;
        gid_t group = 0;
    };

    explicit DaemonProcess(const Options& options);
    DaemonProcess();
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    int Port() const { return m_port; }
    pid_t Pid() const { return m_pid; }
    bool IsRunning();

    // Sends `sig` and waits for the exit; returns the exit status (-1 when it
    // did not end within the time-out, then it is killed) and the time taken.
    int Stop(int sig, int timeoutMs, double* seconds = nullptr);

    // Everything the daemon wrote to standard output so far.
    std::string Output() const;
    // Waits until the output contains `text`.
    bool WaitForOutput(const std::string& text, int timeoutMs);

    // A port that was free a moment ago (another process may take it since):
    // only for a daemon asked to bind an address of its own.
    static int FreePort();
    // The daemon of this build, or the one USBMEDIA_TEST_DAEMON names (the
    // benchmarks measure the armhf daemon from a native build that way).
    static std::string BinaryPath();

    // The emulator command line target programs run through in a cross
    // build (empty natively), or USBMEDIA_TEST_EMULATOR's ("|"-separated);
    // the daemon and the client are started with it.
    static std::vector<std::string> EmulatorPrefix();
    // In a child about to run a host program (gst-launch-1.0, python3):
    // unsets the variables the emulator set for target programs only.
    static void ForgetEmulatorEnvironment();

private:
    // Makes the listening socket the daemon will serve on; returns it (close-
    // on-exec) and sets m_port, or -1.
    int MakeListener();
    bool WaitUntilServing(bool handedOver, int timeoutMs);

    pid_t m_pid = -1;
    int m_port = 0;
    std::string m_outputPath;
};

}  // namespace testing_support
