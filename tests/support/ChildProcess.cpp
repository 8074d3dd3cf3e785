#include "tests/support/ChildProcess.h"

#include "tests/support/DaemonProcess.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace testing_support {

namespace {
double Seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}
}  // namespace

SChildRun RunToEnd(std::vector<std::string> argv, const SChildOptions& options)
{
    SChildRun run;
    if (argv.empty()) {
        return run;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        return run;
    }
    if (pid == 0) {
        if (options.hostProgram) {
            DaemonProcess::ForgetEmulatorEnvironment();
        }
        if (options.discardOutput) {
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
        }
        std::vector<char*> raw;
        for (std::string& argument : argv) {
            raw.push_back(argument.data());
        }
        raw.push_back(nullptr);
        execvp(raw[0], raw.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    pid_t done = -1;
    do {
        done = wait4(pid, &status, 0, &usage);
    } while (done < 0 && errno == EINTR);
    run.succeeded = done == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    run.cpuSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
    return run;
}

}  // namespace testing_support
