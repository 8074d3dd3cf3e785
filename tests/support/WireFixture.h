#pragma once

// What the wire tests do with the running daemon: its requests (on any
// client, or on the fixture's own), the player states it announces, and the
// daemon's life from its start on a private root to a clean exit on SIGTERM.

#include "tests/support/DaemonProcess.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireTimeout.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// Compact text of a value, as the wire carries it: for failure messages.
std::string WireText(const Json::Value& value);

// The reply to `method`; null when none came within kWireTimeoutMs.
Json::Value Call(RpcClient& client, const std::string& method, const Json::Value& params = Json::Value());
// indexUsbStorage for `path`.
Json::Value Index(RpcClient& client, const std::string& path);
// getFileListUSB: `count` records of the folder `path` from `start`.
Json::Value Browse(RpcClient& client, const std::string& path, int count = 100, int start = 0,
                   bool isMaxDepth = false);
// playFileUSB for the file `name` in the folder `path`: only the request
// and its reply, no wait for what follows.
Json::Value PlayFile(RpcClient& client, const std::string& path, const std::string& name);
// playFileUSB for the folder `name` in `parent`.
Json::Value PlayFolder(RpcClient& client, const std::string& parent, const std::string& name);
// Waits for a playerStateChangedNotification with `state`; the states
// announced on the way (that one included) are appended to `seen` when given.
bool WaitForState(RpcClient& client, int state, std::vector<int>* seen = nullptr,
                  int timeoutMs = kWireTimeoutMs);

// A daemon on a private root (m_root, its USBMEDIA_ROOT) with one client
// that stays connected; the same requests on that client.
class WireFixture : public testing::Test {
protected:
    // Ends the daemon with SIGTERM: it must exit cleanly (status 0, so no
    // sanitizer report either).
    void TearDown() override;

    // Starts the daemon with `options` (USBMEDIA_ROOT set to m_root unless
    // given) and connects the client.
    void StartDaemonWith(DaemonProcess::Options options);

    Json::Value Call(const std::string& method, const Json::Value& params = Json::Value());
    std::string CallRaw(const std::string& method, const Json::Value& params = Json::Value());
    Json::Value Index(const std::string& path);
    Json::Value Browse(const std::string& path, int count = 100, int start = 0, bool isMaxDepth = false);
    Json::Value PlayFile(const std::string& path, const std::string& name);
    Json::Value PlayFolder(const std::string& parent, const std::string& name);
    // PlayFile, which must succeed, then waits until the player is playing.
    void PlayFileAndWaitForPlaying(const std::string& path, const std::string& name);
    bool WaitForState(int state, std::vector<int>* seen = nullptr, int timeoutMs = kWireTimeoutMs);
    // The next notification named `method` (any when empty), others dropped.
    bool NextNotification(Json::Value& notification, const std::string& method, int timeoutMs = kWireTimeoutMs);

    TempDir m_root;
    std::unique_ptr<DaemonProcess> m_daemon;
    RpcClient m_client;
};

}  // namespace testing_support
