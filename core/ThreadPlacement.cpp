#include "core/ThreadPlacement.h"

#include <sys/resource.h>

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

void SetThisThreadNiceness(int niceness)
{
    // On Linux a thread's priority is its own: PRIO_PROCESS with its id.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), niceness);
}

int ThisThreadNiceness()
{
    errno = 0;
    const int niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
    return errno == 0 ? niceness : 0;
}

CCoreSplit::CCoreSplit()
{
    const int core = sched_getcpu();
    if (core < 0 || sched_getaffinity(0, sizeof m_allowed, &m_allowed) != 0 || CPU_COUNT(&m_allowed) < 2 ||
        !CPU_ISSET(core, &m_allowed)) {
        return;
    }
    cpu_set_t only{};
    CPU_SET(core, &only);
    if (sched_setaffinity(0, sizeof only, &only) == 0) {
        m_core = core;
    }
}

CCoreSplit::~CCoreSplit()
{
    if (m_core >= 0) {
        sched_setaffinity(0, sizeof m_allowed, &m_allowed);
    }
}

void CCoreSplit::KeepOffFirstCore() const
{
    if (m_core < 0) {
        return;
    }
    cpu_set_t others = m_allowed;
    CPU_CLR(m_core, &others);
    sched_setaffinity(0, sizeof others, &others);
}
