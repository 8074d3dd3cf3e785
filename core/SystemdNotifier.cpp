#include "core/SystemdNotifier.h"

#include <cstdlib>

#ifdef USBMEDIA_HAVE_LIBSYSTEMD
#include <systemd/sd-daemon.h>
#endif

SystemdNotifier& SystemdNotifier::Get()
{
    static SystemdNotifier notifier;
    return notifier;
}

bool SystemdNotifier::Supported()
{
#ifdef USBMEDIA_HAVE_LIBSYSTEMD
    return true;
#else
    return false;
#endif
}

SystemdNotifier::SystemdNotifier()
{
#ifdef USBMEDIA_HAVE_LIBSYSTEMD
    const char* socket = std::getenv("NOTIFY_SOCKET");
    m_enabled = socket != nullptr && socket[0] != '\0';
    uint64_t usec = 0;
    // Checks WATCHDOG_PID too, so a child that inherited the variables stays quiet.
    if (m_enabled && sd_watchdog_enabled(0, &usec) > 0 && usec > 0) {
        m_watchdogPeriod = std::chrono::microseconds(usec / 2);
        m_nextWatchdog = Clock::now();  // the first one goes out with the first turn
    }
#endif
}

void SystemdNotifier::Send(const char* state)
{
#ifdef USBMEDIA_HAVE_LIBSYSTEMD
    if (m_enabled) {
        sd_notify(0, state);
    }
#else
    (void)state;
#endif
}

void SystemdNotifier::Ready()
{
    Send("READY=1");
}

void SystemdNotifier::Stopping()
{
    Send("STOPPING=1");
}

void SystemdNotifier::Alive(Clock::time_point now)
{
    if (m_watchdogPeriod.count() == 0) {
        return;
    }
    {
        const CLockGuard<CMutex> lock(m_mutex);
        if (now < m_nextWatchdog) {
            return;
        }
        m_nextWatchdog = now + m_watchdogPeriod;
    }
    Send("WATCHDOG=1");
}

int SystemdNotifier::WaitMilliseconds(int longest, Clock::time_point now) const
{
    if (m_watchdogPeriod.count() == 0) {
        return longest;
    }
    const CLockGuard<CMutex> lock(m_mutex);
    if (now >= m_nextWatchdog) {
        return 0;
    }
    // Rounded up, so the loop does not wake a moment before the ping is due.
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_nextWatchdog - now +
                                                                            std::chrono::microseconds(999));
    return left.count() < longest ? static_cast<int>(left.count()) : longest;
}
