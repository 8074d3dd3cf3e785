#include "control/rpc/Networking.h"

#include <csignal>
#include <sys/resource.h>

namespace networking {

bool init()
{
    if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return false;
    }
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    return true;
}

}  // namespace networking
