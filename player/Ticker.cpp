#include "player/Ticker.h"

#include <utility>

CTicker::CTicker(std::chrono::microseconds period, std::function<bool()> step, std::function<bool()> isDue)
    : m_period(period), m_step(std::move(step)), m_isDue(std::move(isDue))
{
}

CTicker::~CTicker()
{
    Stop();
}

void CTicker::Start()
{
    m_thread = std::thread(&CTicker::Run, this);
}

void CTicker::Wake()
{
    { const CLockGuard<CMutex> lock(m_wakeMutex); }
    m_wake.notify_all();
}

void CTicker::Stop()
{
    m_stop = true;
    Wake();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

// A period between steps is cut short only by a stop; a wake during it
// changes nothing, so the steps keep their rhythm.
void CTicker::Run()
{
    while (!m_stop) {
        if (m_step()) {
            CUniqueLock lock(m_wakeMutex);
            m_wake.wait_for(lock.Native(), m_period, [this] { return m_stop.load(); });
            continue;
        }
        CUniqueLock lock(m_wakeMutex);
        m_wake.wait(lock.Native(), [this] { return m_stop || m_isDue(); });
    }
}
