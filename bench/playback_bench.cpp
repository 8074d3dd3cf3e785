// Playback benchmark. Two figures, printed, never asserted:
//  1. latency from a "playFileUSB" request to the playerStateChangedNotification
//     with 4 (p50 of 20 requests);
//  2. CPU time (utime + stime) the daemon spends playing an MP3 of N seconds,
//     against gst-launch-1.0 playing the same file through
//     "filesrc ! decodebin ! audioconvert ! fakesink sync=true" in the same run
//     (decodebin's default choice: avdec_mp3 where gstreamer1.0-libav is
//     installed; the daemon prefers mpg123audiodec).
// Usage: playback_bench [--seconds N] [--short] [--cpu-only] [--label TEXT]
//                       [--gst-launch PATH]
//   N = 60 by default; --short: 10. --cpu-only leaves out the latency figure.
//   --label goes before each figure. --gst-launch names the reference program
//   (e.g. a target's own, run through USBMEDIA_TEST_EMULATOR like the daemon).

#include "BenchRows.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::RunToEnd;
using testing_support::SChildOptions;
using testing_support::SChildRun;
using testing_support::MediaFactory;
using testing_support::RpcClient;
using testing_support::TempDir;

namespace {
using Clock = std::chrono::steady_clock;

constexpr int kLatencyRuns = 20;
constexpr int kTimeoutMs = 30000;

struct SOptions {
    int seconds = 60;
    bool cpuOnly = false;
    std::string label;
    std::string gstLaunch = "gst-launch-1.0";
};

// `value` with `decimals` digits after the point, then `unit`.
std::string Format(double value, int decimals, const std::string& unit)
{
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(decimals);
    text << value << unit;
    return text.str();
}

SOptions ParseOptions(int argc, char** argv)
{
    SOptions options;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--short") == 0) {
            options.seconds = 10;
        } else if (std::strcmp(argv[i], "--cpu-only") == 0) {
            options.cpuOnly = true;
        } else if (std::strcmp(argv[i], "--label") == 0 && i + 1 < argc) {
            options.label = std::string(argv[++i]) + " ";
        } else if (std::strcmp(argv[i], "--gst-launch") == 0 && i + 1 < argc) {
            options.gstLaunch = argv[++i];
        } else if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc) {
            options.seconds = std::max(1, std::atoi(argv[++i]));
        } else {
            throw std::runtime_error(std::string("unknown argument: ") + argv[i]);
        }
    }
    return options;
}

// utime + stime of a process, in seconds.
double ProcessCpuSeconds(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // Fields after the parenthesised command name, which may hold blanks.
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    for (int index = 3; fields >> field; ++index) {
        if (index == 14) {
            utime = std::stoull(field);
        } else if (index == 15) {
            stime = std::stoull(field);
            break;
        }
    }
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

Json::Value PlayParams(const std::string& folder, const std::string& name)
{
    Json::Value params;
    params["file"]["name"] = name;
    params["file"]["path"] = folder;
    params["file"]["isFolder"] = false;
    return params;
}

bool WaitForState(RpcClient& client, int state)
{
    Json::Value notification;
    while (client.NextNotification(notification, "playerStateChangedNotification", kTimeoutMs)) {
        if (notification["params"]["playerState"].asInt() == state) {
            return true;
        }
    }
    return false;
}

double Percentile(std::vector<double> values, double fraction)
{
    std::sort(values.begin(), values.end());
    const size_t index = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
    return values[index];
}

DaemonProcess::Options DaemonOptions(const TempDir& root)
{
    DaemonProcess::Options options;
    options.environment["USBMEDIA_ROOT"] = root.Path();
    return options;
}

// A daemon on the benchmark's tree, its storage indexed, with one client
// connected (the daemon only plays while somebody listens).
struct SSession {
    explicit SSession(const TempDir& root) : daemon(DaemonOptions(root))
    {
        if (!client.Connect(daemon.Port())) {
            throw std::runtime_error("cannot connect to the daemon");
        }
        Json::Value params;
        params["usbStoragePath"] = root.Path() + "/mnt/usb-stick1";
        client.Call("indexUsbStorage", params, kTimeoutMs);
    }
    DaemonProcess daemon;
    RpcClient client;
};

void MeasureStartLatency(const TempDir& root, const std::string& folder, const std::string& label)
{
    SSession session(root);
    RpcClient& client = session.client;
    std::vector<double> latencies;
    for (int run = 0; run < kLatencyRuns; ++run) {
        const auto start = Clock::now();
        client.Call("playFileUSB", PlayParams(folder, "short.mp3"), kTimeoutMs);
        if (!WaitForState(client, 4)) {
            throw std::runtime_error("no playing state");
        }
        latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        client.Call("stopPlayingUSB", Json::Value(), kTimeoutMs);
        WaitForState(client, 0);
    }
    std::printf("playFileUSB -> playerStateChangedNotification 4: p50 %.2f ms, p90 %.2f ms, max %.2f ms (%d runs)\n",
                Percentile(latencies, 0.5), Percentile(latencies, 0.9), Percentile(latencies, 1.0), kLatencyRuns);
    Row(label + "play -> playing state p50", Format(Percentile(latencies, 0.5), 2, " ms"),
        "p90 " + Format(Percentile(latencies, 0.9), 2, " ms"), "-", "-");
}

double DaemonPlaybackCpu(const TempDir& root, const std::string& folder)
{
    SSession session(root);
    RpcClient& client = session.client;
    const double before = ProcessCpuSeconds(session.daemon.Pid());
    client.Call("playFileUSB", PlayParams(folder, "long.mp3"), kTimeoutMs);
    Json::Value end;
    const int limitMs = kTimeoutMs * 10;
    if (!client.NextNotification(end, "endOfPlayListNotification", limitMs)) {
        throw std::runtime_error("the daemon did not reach the end of the track");
    }
    return ProcessCpuSeconds(session.daemon.Pid()) - before;
}

// CPU of the reference pipeline, from the child's resource usage.
// Under USBMEDIA_TEST_EMULATOR it runs through the emulator like the daemon.
double ReferencePlaybackCpu(const std::string& file, const std::string& gstLaunch)
{
    std::vector<std::string> argv = DaemonProcess::EmulatorPrefix();
    SChildOptions options;
    options.hostProgram = argv.empty();
    argv.insert(argv.end(), {gstLaunch, "-q", "filesrc", "location=" + file, "!", "decodebin", "!", "audioconvert",
                             "!", "fakesink", "sync=true"});
    const SChildRun run = RunToEnd(std::move(argv), options);
    if (!run.succeeded) {
        throw std::runtime_error("gst-launch-1.0 failed");
    }
    return run.cpuSeconds;
}
}  // namespace

int main(int argc, char** argv)
{
    try {
        const SOptions options = ParseOptions(argc, argv);
        TempDir root;
        const std::string folder = root.Path() + "/mnt/usb-stick1/Bench";
        const std::string longFile = MediaFactory::Mp3(options.seconds, "Bench", "Bench", "Bench");
        MediaFactory::Place(MediaFactory::Mp3(3, "Short", "Bench", "Bench"), folder + "/short.mp3");
        MediaFactory::Place(longFile, folder + "/long.mp3");

        if (!options.cpuOnly) {
            MeasureStartLatency(root, folder, options.label);
        }

        const double daemonCpu = DaemonPlaybackCpu(root, folder);
        const double referenceCpu = ReferencePlaybackCpu(longFile, options.gstLaunch);
        const double ratio = referenceCpu > 0 ? daemonCpu / referenceCpu : 0.0;
        std::printf("CPU over %d s of MP3 playback: daemon %.3f s, gst-launch-1.0 (decodebin's choice) %.3f s, "
                    "ratio %.2f (target <= 0.6)\n",
                    options.seconds, daemonCpu, referenceCpu, ratio);
        const double perMinute = 60.0 / options.seconds;
        Row(options.label + "MP3 playback CPU per minute", Format(daemonCpu * perMinute, 3, " s"),
            "gst-launch " + Format(referenceCpu * perMinute, 3, " s"), Format(ratio, 2, ""), "<= 0.6");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "playback_bench: %s\n", error.what());
        return 1;
    }
}
