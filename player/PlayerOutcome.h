#pragma once

#include <string>

// What one player operation returned together with the status (code and
// message, "Success" for 0) that it left behind, read as one.
template <typename Result>
struct SPlayerOutcome {
    Result value;
    int code;
    std::string message;
};
