#include "core/StartupTimer.h"

#include <cstdint>
#include <cstdio>
#include <ctime>

int TimevalSubtract(struct timeval* result, const struct timeval* end, const struct timeval* start)
{
    // Computed in 64 bits, kept as the signed 32-bit microsecond count.
    const int64_t wide = static_cast<int64_t>(end->tv_usec) + 1000000LL * end->tv_sec -
                         1000000LL * start->tv_sec - start->tv_usec;
    const int32_t count = static_cast<int32_t>(wide);
    result->tv_sec = count / 1000000;
    result->tv_usec = count % 1000000;
    return count < 0 ? 1 : 0;
}

void PrintTimeval(const struct timeval* value)
{
    // time_t is 64 bits on every target (_TIME_BITS=64 on 32-bit ones), long
    // only 32 on armhf: print the seconds as long long, or they wrap in 2038.
    std::printf("%lld.%06ld", static_cast<long long>(value->tv_sec), static_cast<long>(value->tv_usec));
    const time_t seconds = value->tv_sec;
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[30];
    std::strftime(buffer, sizeof buffer, "%m-%d-%Y  %T", &local);
    std::printf(" = %s.%06ld\n", buffer, static_cast<long>(value->tv_usec));
}
