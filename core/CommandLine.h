#pragma once

#include <string>

// Applies the command line to the listen address and the logger. Arguments
// are matched by prefix ("-a", "-l", "--disable-logging", "--stdout"); a
// value taken by "-a" or "-l" is examined as an argument of its own too.
// Unknown arguments are ignored silently.
void ApplyCommandLine(int argc, char** argv, std::string& address);
