#pragma once

#include <string>
#include <vector>

namespace testing_support {

// How a program run to its end went.
struct SChildRun {
    bool succeeded = false;  // started, and exited with status 0
    double cpuSeconds = 0;   // user + system time of the program
};

// Runs `argv` (the program is looked up in PATH) and waits for its end.
// A host program (`hostProgram`) is started without the emulator's
// environment, so a host gst-launch-1.0 does not look for the target's plugins.
SChildRun RunToEnd(std::vector<std::string> argv, bool hostProgram);

}  // namespace testing_support
