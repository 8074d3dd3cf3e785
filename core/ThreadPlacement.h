#pragma once

#include <sched.h>

// Gives the calling thread (not the whole process) the nice value
// `niceness`: background work such as a tag scan yields to requests and
// playback.
void SetThisThreadNiceness(int niceness);

// The calling thread's nice value.
int ThisThreadNiceness();

// Keeps a thread and its helpers on different cores while it lives: the
// thread that makes it stays on the core it is on, and a helper that calls
// KeepOffFirstCore runs on the process's other cores. Left alone, the
// scheduler at times starts a helper on the busy core of the thread that
// made it, and the two then take as long as one after the other. With a
// single core allowed, nothing changes.
class CCoreSplit {
public:
    CCoreSplit();
    // The first thread gets back the cores it was allowed.
    ~CCoreSplit();

    CCoreSplit(const CCoreSplit&) = delete;
    CCoreSplit& operator=(const CCoreSplit&) = delete;

    // Called by a helper thread: keeps it off the first thread's core.
    void KeepOffFirstCore() const;

private:
    cpu_set_t m_allowed{};  // the first thread's cores before
    int m_core = -1;        // the core it is kept on; -1 when nothing was split
};
