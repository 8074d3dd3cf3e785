#pragma once

// A USB stick that fails on command: usbmedia-faultfs (tests/faultfs)
// mounted over a stick's mount point, mirroring a source folder.

#include <sys/types.h>

#include <string>

namespace stick_test {

class FaultStick {
public:
    // Mounts `source` at `mountPoint` and waits until the mount is in place.
    FaultStick(const std::string& source, const std::string& mountPoint);
    // Unmounts (lazily: the daemon may still hold files open) and ends the helper.
    ~FaultStick();
    FaultStick(const FaultStick&) = delete;
    FaultStick& operator=(const FaultStick&) = delete;

    bool Mounted() const { return m_mounted; }
    // Why the mount failed, for the skip message.
    const std::string& Why() const { return m_why; }

    // Runs one command (see tests/faultfs/FaultFs.cpp); true when accepted.
    bool Command(const std::string& command) const;
    // The helper's counters ("calls N\nreaddir N\n...").
    std::string Counters() const;

private:
    std::string m_mountPoint;
    pid_t m_pid = -1;
    bool m_mounted = false;
    std::string m_why;
};

}  // namespace stick_test
