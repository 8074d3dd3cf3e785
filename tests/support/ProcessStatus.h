#pragma once

#include <sys/types.h>

#include <string>

namespace testing_support {

// What /proc tells of a running process, -1 where it cannot be read.

// The resident memory (VmRSS) in KiB.
long ResidentKiB(pid_t pid);
// A "Vm..." line of /proc/PID/status in KiB ("VmHWM", "VmSize", ...).
long StatusKiB(pid_t pid, const std::string& key);
// User plus system CPU time the process has used, in seconds.
double CpuSeconds(pid_t pid);
// How many descriptors the process holds open.
long OpenDescriptors(pid_t pid);
// How many of them are numbered below `limit`: a process whose table is
// limited to `limit` is full when this reaches it (descriptors it inherited
// above the limit stay open but do not count).
long OpenDescriptorsBelow(pid_t pid, long limit);
// Each open descriptor and what it refers to, one "N -> target" a line.
std::string DescriptorList(pid_t pid);

}  // namespace testing_support
