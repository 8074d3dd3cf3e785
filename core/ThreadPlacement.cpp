#include "core/ThreadPlacement.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

void SetThisThreadNiceness(int niceness)
{
    // On Linux a thread's priority is its own: PRIO_PROCESS with its id.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), niceness);
}
