#pragma once

#include <atomic>

// A process-wide request to end directory scans early. The service raises it
// when it is asked to terminate, so that a scan of a slow or huge stick does
// not hold up the exit: the scanner checks it before each directory entry and
// then finishes as if every open folder had ended. Never lowered.
inline std::atomic<bool> g_scanStopRequested{false};

// A stop of the walks of this thread alone (the tag scan's, ended when its
// stick goes away), checked beside the process-wide one.
inline thread_local const std::atomic<bool>* t_threadScanStop = nullptr;

inline void RequestScanStop()
{
    g_scanStopRequested.store(true, std::memory_order_relaxed);
}

inline bool ScanStopRequested()
{
    return g_scanStopRequested.load(std::memory_order_relaxed) ||
           (t_threadScanStop != nullptr && t_threadScanStop->load(std::memory_order_relaxed));
}

// While alive, walks on this thread also end when `stop` is raised.
class CThreadScanStop {
public:
    explicit CThreadScanStop(const std::atomic<bool>& stop) { t_threadScanStop = &stop; }
    ~CThreadScanStop() { t_threadScanStop = nullptr; }
    CThreadScanStop(const CThreadScanStop&) = delete;
    CThreadScanStop& operator=(const CThreadScanStop&) = delete;
};
