// Request latency of the running daemon: "ping" round trips with 1 and with
// 64 concurrent clients, beside a plain TCP echo round trip of the same bytes
// measured in the same run. Prints figures and ratios; asserts nothing.
//
// Usage: ping_bench [round-trips-per-client (default 1000)]

#include "BenchRows.h"

#include "tests/support/DaemonProcess.h"
#include "tests/support/RpcClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::RpcClient;
using Clock = std::chrono::steady_clock;

namespace {
const std::string kPing = "{\"jsonrpc\":\"2.0\",\"method\":\"ping\",\"id\":1}";
const std::string kPingReply = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":true}";

struct SFigures {
    double p50Us = 0;
    double p99Us = 0;
    double requestsPerSecond = 0;
    long errors = 0;
};

// A plain echo server: one thread per connection, blocking reads and writes.
class EchoServer {
public:
    EchoServer()
    {
        m_listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        listen(m_listener, 128);
        m_acceptor = std::thread([this] { AcceptLoop(); });
    }
    ~EchoServer()
    {
        shutdown(m_listener, SHUT_RDWR);
        close(m_listener);
        m_acceptor.join();
        for (auto& worker : m_workers) {
            worker.join();
        }
    }
    int Port() const { return m_port; }

private:
    void AcceptLoop()
    {
        for (;;) {
            const int fd = accept(m_listener, nullptr, nullptr);
            if (fd < 0) {
                return;
            }
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_workers.emplace_back([fd] {
                char buffer[4096];
                for (;;) {
                    const ssize_t n = read(fd, buffer, sizeof buffer);
                    if (n <= 0 || write(fd, buffer, static_cast<size_t>(n)) != n) {
                        break;
                    }
                }
                close(fd);
            });
        }
    }
    int m_listener = -1;
    int m_port = 0;
    std::thread m_acceptor;
    std::vector<std::thread> m_workers;
};

// Round trips of `request` by `clients` concurrent connections.
SFigures Measure(int port, int clients, int roundTrips, const std::string& request, const std::string& reply,
                 bool echo)
{
    std::vector<std::vector<double>> latencies(static_cast<size_t>(clients));
    std::atomic<long> errors{0};
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            RpcClient client;
            if (!client.Connect(port)) {
                errors += roundTrips;
                return;
            }
            auto& mine = latencies[static_cast<size_t>(c)];
            mine.reserve(static_cast<size_t>(roundTrips));
            const std::string wire = echo ? request + "\n" : request;
            for (int i = 0; i < roundTrips; ++i) {
                const auto sent = Clock::now();
                std::string line;
                if (!client.SendRaw(wire) || !client.ReadLine(line, 10000) || line != reply) {
                    ++errors;
                    continue;
                }
                mine.push_back(std::chrono::duration<double, std::micro>(Clock::now() - sent).count());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::vector<double> all;
    for (const auto& each : latencies) {
        all.insert(all.end(), each.begin(), each.end());
    }
    SFigures figures;
    figures.errors = errors;
    if (all.empty()) {
        return figures;
    }
    std::sort(all.begin(), all.end());
    figures.p50Us = all[all.size() / 2];
    figures.p99Us = all[std::min(all.size() - 1, all.size() * 99 / 100)];
    figures.requestsPerSecond = static_cast<double>(all.size()) / seconds;
    return figures;
}

void Rows(const char* clients, const SFigures& ping, const SFigures& echo, const char* p50Target)
{
    const std::string suffix = std::string(", ") + clients;
    Row("ping p50" + suffix, Fixed("%.1f us", ping.p50Us), "echo " + Fixed("%.1f us", echo.p50Us),
        Fixed("%.2f x", ping.p50Us / echo.p50Us), p50Target);
    Row("ping p99" + suffix, Fixed("%.1f us", ping.p99Us), "echo " + Fixed("%.1f us", echo.p99Us),
        Fixed("%.2f x", ping.p99Us / echo.p99Us), "-");
    Row("ping requests/s" + suffix, Fixed("%.0f", ping.requestsPerSecond),
        "echo " + Fixed("%.0f", echo.requestsPerSecond),
        Fixed("%.2f", ping.requestsPerSecond / echo.requestsPerSecond), "-");
}
}  // namespace

int main(int argc, char** argv)
{
    const int roundTrips = argc > 1 ? std::atoi(argv[1]) : 1000;
    struct rlimit limit {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    DaemonProcess daemon;
    EchoServer echo;

    // Warm both paths first.
    Measure(daemon.Port(), 1, 200, kPing, kPingReply, false);
    Measure(echo.Port(), 1, 200, kPing, kPing, true);

    const SFigures ping1 = Measure(daemon.Port(), 1, roundTrips, kPing, kPingReply, false);
    const SFigures echo1 = Measure(echo.Port(), 1, roundTrips, kPing, kPing, true);
    const SFigures ping64 = Measure(daemon.Port(), 64, roundTrips, kPing, kPingReply, false);
    const SFigures echo64 = Measure(echo.Port(), 64, roundTrips, kPing, kPing, true);

    std::printf("\nping round trips, %d per client, medians and tails in microseconds\n\n", roundTrips);
    Row("figure", "value", "reference", "ratio", "target");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(32, '-').c_str(), std::string(16, '-').c_str(),
                std::string(26, '-').c_str(), std::string(10, '-').c_str(), std::string(10, '-').c_str());
    Rows("1 client", ping1, echo1, "<= 2 x");
    Rows("64 clients", ping64, echo64, "-");
    Row("ping errors, 64 clients", std::to_string(ping64.errors + ping1.errors),
        std::to_string(64L * roundTrips) + " requests", "-", "0");
    return 0;
}
