#pragma once

#include "control/rpc/FileDescriptor.h"

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace cli_test {

// usb-media-ctl run as a child process with its output captured: to the
// end (Run), or in the background while the test reads what it prints
// (watch).
class CliProcess {
public:
    struct Options {
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;  // an empty value unsets the variable
        std::string workingDirectory;                     // empty: the test's own
        bool terminal = false;  // standard output (and error) on a pseudo-terminal
    };

    struct Result {
        int status = -1;  // exit status; -1 when it had to be killed
        std::string out;
        std::string err;
    };

    explicit CliProcess(const Options& options);
    ~CliProcess();
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    // Runs to the end (killed after `timeoutMs`).
    static Result Run(const Options& options, int timeoutMs);

    // Waits until standard output (or error) holds `text`.
    bool WaitForOutput(const std::string& text, int timeoutMs);
    bool WaitForError(const std::string& text, int timeoutMs);

    void Signal(int sig);
    // Waits for the exit and the end of the output; -1 after a time-out (then killed).
    int Wait(int timeoutMs);

    const std::string& Out() const { return m_out; }
    const std::string& Err() const { return m_err; }

    static std::string BinaryPath();

private:
    void Start(const Options& options);
    void StartOnTerminal(const Options& options);
    // Reads what the pipes hold, waiting up to `timeoutMs` for something.
    void Pump(int timeoutMs);
    bool Reap(bool block);

    pid_t m_pid = -1;
    int m_status = -1;
    Json::Rpc::FileDescriptor m_outPipe;
    Json::Rpc::FileDescriptor m_errPipe;
    std::string m_out;
    std::string m_err;
};

}  // namespace cli_test
