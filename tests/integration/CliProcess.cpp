#include "tests/integration/CliProcess.h"

#include "tests/support/DaemonProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace cli_test {

namespace {
using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// In the child: environment, directory, then the client itself.
[[noreturn]] void ExecClient(const CliProcess::Options& options)
{
    for (const auto& entry : options.environment) {
        if (entry.second.empty()) {
            unsetenv(entry.first.c_str());
        } else {
            setenv(entry.first.c_str(), entry.second.c_str(), 1);
        }
    }
    if (!options.workingDirectory.empty() && chdir(options.workingDirectory.c_str()) != 0) {
        _exit(126);
    }
    std::vector<std::string> argv = testing_support::DaemonProcess::EmulatorPrefix();
    argv.push_back(CliProcess::BinaryPath());
    argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> raw;
    for (std::string& argument : argv) {
        raw.push_back(argument.data());
    }
    raw.push_back(nullptr);
    execv(raw[0], raw.data());
    _exit(127);
}

// Appends what `fd` holds; closes it at the end of the stream.
void Drain(Json::Rpc::FileDescriptor& fd, std::string& text)
{
    char chunk[4096];
    const ssize_t n = read(fd.Get(), chunk, sizeof chunk);
    if (n > 0) {
        text.append(chunk, static_cast<size_t>(n));
    } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        fd.Reset();  // a pseudo-terminal reports EIO once the child is gone
    }
}
}  // namespace

std::string CliProcess::BinaryPath()
{
    return USBMEDIA_CLI_PATH;
}

CliProcess::CliProcess(const Options& options)
{
    if (options.terminal) {
        StartOnTerminal(options);
    } else {
        Start(options);
    }
}

CliProcess::~CliProcess()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        Reap(true);
    }
}

void CliProcess::Start(const Options& options)
{
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    m_pid = fork();
    if (m_pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        ExecClient(options);
    }
    close(out[1]);
    close(err[1]);
    m_outPipe.Reset(out[0]);
    m_errPipe.Reset(err[0]);
}

void CliProcess::StartOnTerminal(const Options& options)
{
    int master = -1;
    m_pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (m_pid < 0) {
        throw std::runtime_error("forkpty failed");
    }
    if (m_pid == 0) {
        ExecClient(options);
    }
    fcntl(master, F_SETFD, FD_CLOEXEC);
    m_outPipe.Reset(master);
}

CliProcess::Result CliProcess::Run(const Options& options, int timeoutMs)
{
    CliProcess process(options);
    Result result;
    result.status = process.Wait(timeoutMs);
    result.out = process.Out();
    result.err = process.Err();
    return result;
}

void CliProcess::Pump(int timeoutMs)
{
    pollfd watched[2];
    Json::Rpc::FileDescriptor* owners[2];
    std::string* texts[2];
    nfds_t count = 0;
    if (m_outPipe.IsValid()) {
        watched[count] = {m_outPipe.Get(), POLLIN, 0};
        owners[count] = &m_outPipe;
        texts[count++] = &m_out;
    }
    if (m_errPipe.IsValid()) {
        watched[count] = {m_errPipe.Get(), POLLIN, 0};
        owners[count] = &m_errPipe;
        texts[count++] = &m_err;
    }
    if (count == 0 || poll(watched, count, timeoutMs) <= 0) {
        return;
    }
    for (nfds_t i = 0; i < count; ++i) {
        if (watched[i].revents != 0) {
            Drain(*owners[i], *texts[i]);
        }
    }
}

bool CliProcess::WaitForOutput(const std::string& text, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_out.find(text) == std::string::npos) {
        if (RemainingMs(deadline) == 0 || (!m_outPipe.IsValid() && !m_errPipe.IsValid())) {
            return false;
        }
        Pump(std::min(RemainingMs(deadline), 100));
    }
    return true;
}

bool CliProcess::WaitForError(const std::string& text, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_err.find(text) == std::string::npos) {
        if (RemainingMs(deadline) == 0 || (!m_outPipe.IsValid() && !m_errPipe.IsValid())) {
            return false;
        }
        Pump(std::min(RemainingMs(deadline), 100));
    }
    return true;
}

void CliProcess::Signal(int sig)
{
    if (m_pid > 0) {  // never 0 or -1: those would reach other processes
        kill(m_pid, sig);
    }
}

bool CliProcess::Reap(bool block)
{
    int status = 0;
    const pid_t done = waitpid(m_pid, &status, block ? 0 : WNOHANG);
    if (done != m_pid) {
        return false;
    }
    m_pid = -1;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

int CliProcess::Wait(int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_outPipe.IsValid() || m_errPipe.IsValid() || m_pid > 0) {
        if (RemainingMs(deadline) == 0) {
            if (m_pid > 0) {
                kill(m_pid, SIGKILL);
                Reap(true);
            }
            return -1;
        }
        Pump(std::min(RemainingMs(deadline), 50));
        if (m_pid > 0) {
            Reap(false);
        }
    }
    return m_status;
}

}  // namespace cli_test
