// watch: stays connected and shows every notification as it arrives.
#include "tools/Verbs.h"

#include "control/rpc/FileDescriptor.h"
#include "tools/WatchFormatter.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ostream>

namespace usbctl {

namespace {
// SIGINT and SIGTERM delivered as a readable descriptor instead of a
// handler, so the wait for the socket can wait for them too. The previous
// signal mask is restored on destruction.
class TerminationSignals {
public:
    TerminationSignals()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, &m_previousMask);
        m_fd.Reset(signalfd(-1, &signals, SFD_CLOEXEC));
        if (!m_fd.IsValid()) {
            const int error = errno;
            pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
            throw ConnectionError(std::string("cannot watch for signals: ") + std::strerror(error));
        }
    }
    ~TerminationSignals()
    {
        m_fd.Reset();
        pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
    }
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

    int Fd() const { return m_fd.Get(); }

    // Takes the pending signal, so that it is not delivered again once the
    // old mask is back.
    void Consume() const
    {
        signalfd_siginfo info{};
        while (read(m_fd.Get(), &info, sizeof info) < 0 && errno == EINTR) {
        }
    }

private:
    sigset_t m_previousMask{};
    Json::Rpc::FileDescriptor m_fd;
};

enum class WakeReason { Data, Signal, Closed };

WakeReason WaitForActivity(Connection& connection, const TerminationSignals& signals)
{
    for (;;) {
        pollfd watched[2] = {{connection.Fd(), POLLIN, 0}, {signals.Fd(), POLLIN, 0}};
        const int ready = poll(watched, 2, -1);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            return WakeReason::Closed;
        }
        if (watched[1].revents != 0) {
            signals.Consume();
            return WakeReason::Signal;
        }
        return connection.ReadAvailable() ? WakeReason::Data : WakeReason::Closed;
    }
}

// The service tells of the tag library's scans only the clients that used
// one of its methods: asking for the library's status makes watch one.
Json::Value ListenToLibrary(Connection& connection)
{
    const Json::Value id = connection.NextId();
    connection.SendRequest("getLibraryStatusUSB", Json::Value(Json::objectValue), id);
    return id;
}

bool IsReplyTo(const Message& message, const Json::Value& id)
{
    return message.value.isObject() && !message.IsNotification() && message.value["id"] == id;
}

void Show(const VerbContext& context, WatchFormatter& formatter, const Message& message)
{
    if (context.Json() || message.value.isNull()) {
        context.out << message.text << "\n";
    } else {
        context.out << formatter.Format(message.value);
    }
    context.out << std::flush;
}
}  // namespace

int RunWatch(const VerbContext& context)
{
    const TerminationSignals signals;
    Connection connection = context.Connect();
    const Json::Value libraryRequest = ListenToLibrary(connection);
    context.err << "watching " << connection.Peer() << " (Ctrl-C to stop)\n" << std::flush;
    WatchFormatter formatter(context.outIsTerminal && !context.Json());
    for (;;) {
        Message message;
        while (connection.TakeBuffered(message)) {
            if (!IsReplyTo(message, libraryRequest)) {
                Show(context, formatter, message);
            }
        }
        const WakeReason reason = WaitForActivity(connection, signals);
        if (reason == WakeReason::Signal) {
            break;
        }
        if (reason == WakeReason::Closed) {
            context.out << formatter.Finish() << std::flush;
            context.err << "usb-media-ctl: the service closed the connection\n" << std::flush;
            return kExitUsage;  // a connection error, as for any verb
        }
    }
    context.out << formatter.Finish() << std::flush;
    return kExitSuccess;
}

}  // namespace usbctl
