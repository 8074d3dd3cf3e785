#pragma once

// A daemon on a private stick tree, and one client that stays connected
// (the daemon only plays while somebody listens), with helpers for the
// playback requests and the notifications they cause.

#include "tests/support/DaemonProcess.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/PlayerStates.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <memory>
#include <utility>
#include <string>
#include <vector>

namespace player_test {

// Generous time-outs: the machine may be busy with other tests.
constexpr int kEventTimeoutMs = 15000;

using testing_support::kFastForward;
using testing_support::kPaused;
using testing_support::kPlaying;
using testing_support::kRewind;
using testing_support::kStopped;

// Compact text of a value, for failure messages.
std::string Text(const Json::Value& value);

class PlayerTest : public testing::Test {
protected:
    // Ends the daemon with SIGTERM: it must exit cleanly (status 0, so no
    // sanitizer report either).
    void TearDown() override;

    // Starts the daemon on the tree (making the stick's mount point unless
    // told not to) and connects the client.
    void StartDaemon(const std::vector<std::string>& arguments = {}, bool makeStick = true);

    std::string Stick() const { return m_root.Path() + "/mnt/usb-stick1"; }
    std::string Root() const { return m_root.Path(); }
    testing_support::DaemonProcess& Daemon() { return *m_daemon; }

    // Puts a media file at `relativePath` below the stick.
    void PlaceOnStick(const std::string& source, const std::string& relativePath);

    Json::Value Call(const std::string& method, const Json::Value& params = Json::Value());
    // The "result" of a call.
    Json::Value Result(const std::string& method, const Json::Value& params = Json::Value());

    // Builds the storage index of the whole stick.
    void IndexStick();
    // "playFileUSB" for a file in a folder of the stick ("" for its root).
    Json::Value PlayFile(const std::string& folder, const std::string& name);
    Json::Value PlayFolder(const std::string& parent, const std::string& name);

    // Waits for a playerStateChangedNotification with `state`; the states
    // announced on the way are appended to `seen` when given.
    bool WaitForState(int state, std::vector<int>* seen = nullptr, int timeoutMs = kEventTimeoutMs);
    // The next notification of `method`, or null on time-out.
    Json::Value Next(const std::string& method, int timeoutMs = kEventTimeoutMs);
    // The states announced until nothing more arrives for `quietMs`.
    std::vector<int> StatesWithin(int quietMs);
    // Waits for a trackTimeNotification whose "trackTime" satisfies `accept`;
    // returns that time, or -1 on time-out.
    template <typename Accept>
    long WaitForTime(Accept accept, int timeoutMs = kEventTimeoutMs);
    // The "trackTime" of the next trackTimeNotification, or -1 on time-out.
    long NextTime(int timeoutMs = kEventTimeoutMs);
    // "error" of a reply as {code, message}; {0, ""} when there is none.
    static std::pair<int, std::string> ErrorOf(const Json::Value& reply);

    Json::Value TrackInfo();
    std::string CurrentFileName() { return TrackInfo()["fileName"].asString(); }
    int PlayerState() { return Result("getCurrentPlayerState")["playerState"].asInt(); }

    // Plays `name` and waits until it is playing.
    void StartPlaying(const std::string& folder, const std::string& name);

    testing_support::RpcClient client;

private:
    testing_support::TempDir m_root;
    std::unique_ptr<testing_support::DaemonProcess> m_daemon;
};

template <typename Accept>
long PlayerTest::WaitForTime(Accept accept, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return -1;
        }
        const long time = NextTime(static_cast<int>(left.count()));
        if (time < 0 || accept(time)) {
            return time;
        }
    }
}

}  // namespace player_test
