// SPDX-License-Identifier: MIT
// What a connection keeps while nothing arrives.
#pragma once

#include <string>

#include <zedipc/ipc.h>

namespace zedipc {

// For the text that a connection's messages are read into: where it is or was a large one,
// this gives its memory, and all that is free, back to the system, and empties it.
void release_large(std::string& text);

// The same, called between two messages, once nothing has arrived for a second: a stream of
// large messages costs no page faults. Waits for nothing where the text is small, and
// touches no flag of the connection.
void release_when_idle(const IPC& connection, std::string& text);

}  // namespace zedipc
