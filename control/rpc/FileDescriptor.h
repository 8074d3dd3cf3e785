#pragma once

#include "core/PosixHandles.h"

namespace Json {
namespace Rpc {

// Owns one file descriptor (a socket, an eventfd) and closes it.
using FileDescriptor = ::UniqueFd;

}  // namespace Rpc
}  // namespace Json
