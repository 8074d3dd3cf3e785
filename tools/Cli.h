#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace usbctl {

// The whole client: parses `args` (without the program name), runs the verb
// and returns the exit status (0 success, 1 the service reported a failure,
// 2 usage or connection error). `outIsTerminal` lets watch redraw in place.
int RunCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   bool outIsTerminal);

}  // namespace usbctl
