#pragma once

#include <string>
#include <sys/time.h>

// Measures the service's start-up, from the first line of main to the
// moment the main loop is about to run.
struct CStartupTimer {
    struct timeval start {};
    struct timeval end {};
    struct timeval elapsed {};
    std::string name = "USB Service";
};

// result = end - start; returns 1 when the difference is negative, else 0.
int TimevalSubtract(struct timeval* result, const struct timeval* end, const struct timeval* start);

// Prints "sec.usec = mm-dd-YYYY  HH:MM:SS.usec".
void PrintTimeval(const struct timeval* value);
