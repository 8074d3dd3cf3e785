#pragma once

#include <string>
#include <vector>

namespace testing_support {

// How a program run to its end went.
struct SChildRun {
    bool succeeded = false;  // started, and exited with status 0
    double cpuSeconds = 0;   // user + system time of the program
};

struct SChildOptions {
    // A host program is started without the emulator's environment, so a
    // host gst-launch-1.0 does not look for the target's plugins.
    bool hostProgram = true;
    bool discardOutput = false;  // standard output and error to /dev/null
};

// Runs `argv` (the program is looked up in PATH) and waits for its end.
SChildRun RunToEnd(std::vector<std::string> argv, const SChildOptions& options = {});

}  // namespace testing_support
