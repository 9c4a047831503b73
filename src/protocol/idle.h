// SPDX-License-Identifier: MIT
// What a connection keeps while nothing arrives.
#pragma once

#include <string>

#include <zedipc/ipc.h>

namespace zedipc {

// If the text that a connection's messages are read into is or was large, empties it, and
// gives its memory and all that is free back to the system.
void release_large(std::string& text);

// Called between two messages: does the same if nothing arrives for a second, so that a
// stream of large messages costs no page faults. Returns at once if the text is small or as
// soon as something arrives, and touches none of the connection's flags.
void release_when_idle(const IPC& connection, std::string& text);

}  // namespace zedipc
