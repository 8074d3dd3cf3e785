#pragma once

#include "core/Mutex.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

// A worker thread that runs a step once a period while its step says there
// is work, and otherwise sleeps until woken with work due. The player has
// two: progress reports while playing and the fast forward / rewind steps.
//
// The due check reads state its owner publishes without a lock (an atomic),
// so the wake-up lock is a leaf: held only to wait and to signal.
class CTicker {
public:
    // `step` runs one tick and returns whether to tick again after a
    // period; `isDue` says, without taking any lock, whether a sleeping
    // ticker has work again.
    CTicker(std::chrono::microseconds period, std::function<bool()> step, std::function<bool()> isDue);
    // Stops and joins the thread.
    ~CTicker();

    CTicker(const CTicker&) = delete;
    CTicker& operator=(const CTicker&) = delete;

    // Starts the thread; the owner calls it once everything the step uses
    // exists.
    void Start();
    // Lets a sleeping ticker look at `isDue` again. Sent with the wake-up
    // lock taken and released, so a thread about to wait either sees the
    // new state or gets the wake.
    void Wake() EXCLUDES(m_wakeMutex);
    // Ends the thread after its current step and joins it; idempotent.
    void Stop() EXCLUDES(m_wakeMutex);

    // The wake-up lock, for an owner's lock-order annotations only (const:
    // it cannot be taken through this).
    const CMutex& WakeMutex() const RETURN_CAPABILITY(m_wakeMutex) { return m_wakeMutex; }

private:
    void Run() EXCLUDES(m_wakeMutex);

    const std::chrono::microseconds m_period;
    const std::function<bool()> m_step;
    const std::function<bool()> m_isDue;
    std::atomic<bool> m_stop{false};
    // Guards no data: the sleep of the thread and the wakes sent to it.
    CMutex m_wakeMutex;
    std::condition_variable m_wake;
    std::thread m_thread;
};
