#pragma once

#include <atomic>

// A process-wide request to end directory scans early. The service raises it
// when it is asked to terminate, so that a scan of a slow or huge stick does
// not hold up the exit: the scanner checks it before each directory entry and
// then finishes as if every open folder had ended. Never lowered.
inline std::atomic<bool> g_scanStopRequested{false};

inline void RequestScanStop()
{
    g_scanStopRequested.store(true, std::memory_order_relaxed);
}

inline bool ScanStopRequested()
{
    return g_scanStopRequested.load(std::memory_order_relaxed);
}
