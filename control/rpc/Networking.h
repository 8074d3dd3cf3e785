#pragma once

namespace networking {

// Process-wide socket set-up: SIGPIPE is ignored (a peer that went away must
// never end the process) and the descriptor limit is raised to its hard
// maximum so that many clients can be connected at once.
bool init();

}  // namespace networking
