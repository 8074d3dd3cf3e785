#pragma once

namespace testing_support {

// The longest any single wait of a wire test (a reply, a notification, a
// datagram to the notify socket, a mount, an exit) may take on a loaded
// 2-core machine under sanitizers or emulation.
constexpr int kWireTimeoutMs = 30000;

}  // namespace testing_support
