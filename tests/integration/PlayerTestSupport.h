#pragma once

// A daemon on a private stick tree, and one client that stays connected
// (the daemon only plays while somebody listens), with helpers for the
// playback requests and the notifications they cause.

#include "tests/support/MediaFactory.h"
#include "tests/support/PlayerStates.h"
#include "tests/support/WireFixture.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <memory>
#include <utility>
#include <string>
#include <vector>

namespace player_test {

using testing_support::kFastForward;
using testing_support::kPaused;
using testing_support::kPlaying;
using testing_support::kRewind;
using testing_support::kStopped;
using testing_support::kWireTimeoutMs;
using testing_support::WireText;

class PlayerTest : public testing_support::WireFixture {
protected:
    // Starts the daemon on the tree (making the stick's mount point unless
    // told not to) and connects the client.
    void StartDaemon(const std::vector<std::string>& arguments = {}, bool makeStick = true);

    std::string Stick() const { return m_root.Path() + "/mnt/usb-stick1"; }
    // The folder `relative` below the stick ("" for its root).
    std::string InStick(const std::string& relative) const
    {
        return relative.empty() ? Stick() : Stick() + "/" + relative;
    }
    std::string Root() const { return m_root.Path(); }
    testing_support::DaemonProcess& Daemon() { return *m_daemon; }

    // Puts a media file at `relativePath` below the stick.
    void PlaceOnStick(const std::string& source, const std::string& relativePath);

    // The "result" of a call.
    Json::Value Result(const std::string& method, const Json::Value& params = Json::Value());

    // Builds the storage index of the whole stick.
    void IndexStick();

    // The next notification of `method`, or null on time-out.
    Json::Value Next(const std::string& method, int timeoutMs = kWireTimeoutMs);
    // The states announced until nothing more arrives for `quietMs`.
    std::vector<int> StatesWithin(int quietMs);
    // Waits for a trackTimeNotification whose "trackTime" satisfies `accept`;
    // returns that time, or -1 on time-out.
    template <typename Accept>
    long WaitForTime(Accept accept, int timeoutMs = kWireTimeoutMs);
    // The "trackTime" of the next trackTimeNotification, or -1 on time-out.
    long NextTime(int timeoutMs = kWireTimeoutMs);
    // "error" of a reply as {code, message}; {0, ""} when there is none.
    static std::pair<int, std::string> ErrorOf(const Json::Value& reply);

    Json::Value TrackInfo();
    std::string CurrentFileName() { return TrackInfo()["fileName"].asString(); }
    int PlayerState() { return Result("getCurrentPlayerState")["playerState"].asInt(); }
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
