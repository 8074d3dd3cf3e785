#pragma once

#include "core/Mutex.h"

#include <chrono>

// Tells a supervising systemd how the service is doing, through sd_notify:
// READY=1 once the control port listens, STOPPING=1 when a termination
// signal arrives, and WATCHDOG=1 from the listener loop at half the interval
// that systemd gives in WATCHDOG_USEC. Without NOTIFY_SOCKET in the
// environment (or without libsystemd at build time) every call does nothing.
class SystemdNotifier {
public:
    using Clock = std::chrono::steady_clock;

    // The process's notifier, reading the environment on first use.
    static SystemdNotifier& Get();

    SystemdNotifier();

    // Whether this build can notify at all (it was linked with libsystemd).
    static bool Supported();

    bool Enabled() const { return m_enabled; }
    // Half the watchdog interval; zero when no watchdog was asked for.
    std::chrono::microseconds WatchdogPeriod() const { return m_watchdogPeriod; }

    void Ready();
    void Stopping();

    // Called on every turn of the listener loop: sends WATCHDOG=1 when one
    // is due. `now` is for tests.
    void Alive(Clock::time_point now = Clock::now());

    // How long the listener may wait before the next WATCHDOG=1 is due, at
    // most `longest` milliseconds.
    int WaitMilliseconds(int longest, Clock::time_point now = Clock::now()) const;

private:
    void Send(const char* state);

    bool m_enabled = false;
    std::chrono::microseconds m_watchdogPeriod{0};
    mutable CMutex m_mutex;
    Clock::time_point m_nextWatchdog GUARDED_BY(m_mutex);
};
